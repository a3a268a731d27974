#include "ctl/CardUse.hpp"

#include <CLI/CLI.hpp>
#include <chrono>
#include <utility>

#include "client/SecretInput.hpp"
#include "ctl/HashText.hpp"

namespace ctl {

void addCardUseOptions(CLI::App &command, CardUseOptions &options) {
  command.add_option("--certificate", options.certificate, "SHA-1 hash of the key's certificate")
      ->required();
  command.add_option("--in", options.in, "file to read; default: standard input");
  command.add_option("--out", options.out, "file to write; default: standard output");
  command.add_option("--pin-file", options.pinFile, "holds the key's PIN");
  command.add_option("--timeout", options.seconds, "seconds to wait; default: 120")
      ->check(CLI::Range(1, 86400));
}

std::optional<CardUse> beginCardUse(const CardUseOptions &options, Failure &failure) {
  auto hash = sha1FromText(options.certificate);
  if (!hash) {
    failure = {"\"" + options.certificate + "\" is not a SHA-1 hash of 40 digits",
               "kfyctl certificates", exitWrongCommandLine};
    return std::nullopt;
  }
  Error error;
  auto pin = options.pinFile.empty() ? std::optional(SecretText())
                                     : client::secretFromFile(options.pinFile, &error);
  if (!pin) {
    failure = {error.description, ""};
    return std::nullopt;
  }
  auto daemon = LocalDaemon::open(std::chrono::seconds(options.seconds), failure);
  auto card = daemon ? daemon->certificate(*hash, failure) : std::nullopt;
  auto key = card ? card->certificate.publicKey(&error) : std::nullopt;
  if (!key) {
    failure = card ? Failure{error.description, "kfyctl certificates"} : failure;
    return std::nullopt;
  }
  return CardUse{std::move(*daemon), std::move(*hash), std::move(*card), std::move(*key),
                 std::move(*pin)};
}

}  // namespace ctl
