#pragma once

#include <optional>
#include <string>

#include "base/Bytes.hpp"
#include "base/Secret.hpp"
#include "ctl/CommandLine.hpp"
#include "ctl/LocalDaemon.hpp"
#include "ctl/Outcome.hpp"

namespace ctl {

// What signing and decrypting have in common on the command line.
struct CardUseOptions {
  std::string certificate;  // SHA-1 hash
  std::string hash;
  std::string in;
  std::string out;
  std::string pinFile;
  int seconds = 120;  // the key's holder may have to ask its user
};

// Adds them to a command, all but --hash.
void addCardUseOptions(CLI::App &command, CardUseOptions &options);

// The daemon, the certificate of the chosen key and the PIN, which is empty where none was given.
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
