#pragma once

#include <optional>
#include <string>

#include "base/Bytes.hpp"
#include "base/Secret.hpp"
#include "ctl/CommandLine.hpp"
#include "ctl/LocalDaemon.hpp"
#include "ctl/Outcome.hpp"

namespace ctl {

// The options that signing and decrypting share.
struct CardUseOptions {
  std::string certificate;  // SHA-1 hash
  std::string hash;
  std::string in;
  std::string out;
  std::string pinFile;
  int seconds = 120;  // the key's holder may have to ask its user
};

// Adds these options, except --hash, to a command.
void addCardUseOptions(CLI::App &command, CardUseOptions &options);

// The daemon, the chosen key's certificate, and the PIN (empty if none was given).
struct CardUse {
  LocalDaemon daemon;
  Bytes certificateHash;
  CardCertificate card;
  crypto::PublicKey key;
  SecretText pin;
};

// Nothing, with `failure` filled, if one of them is missing.
[[nodiscard]] std::optional<CardUse> beginCardUse(const CardUseOptions &options, Failure &failure);

}  // namespace ctl
