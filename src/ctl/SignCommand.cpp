#include <CLI/CLI.hpp>
#include <memory>

#include "ctl/CardUse.hpp"
#include "ctl/Commands.hpp"
#include "ctl/DataStreams.hpp"
#include "ctl/SigningInput.hpp"
#include "protocol/KeyRequest.hpp"

namespace ctl {
namespace {

constexpr unsigned kReadableByAll = 0644;

Outcome sign(const CardUseOptions &options, Invocation &invocation) {
  Failure failure;
  auto use = beginCardUse(options, failure);
  const auto input = use ? readInput(options.in, invocation, failure) : std::nullopt;
  const auto data = input ? dataToSign(use->key, options.hash, *input, failure) : std::nullopt;
  const auto signature =
      data ? use->daemon.sign(use->certificateHash, *data, use->pin, failure) : std::nullopt;
  if (!signature) {
    return failure;
  }
  if (!protocol::isSignature(use->key, *data, *signature)) {
    return Failure{"the answer is not a signature of this certificate's key, and is not written",
                   "kfyctl certificates"};
  }
  return writeOutput(options.out, *signature, kReadableByAll, invocation);
}

}  // namespace

void addSignCommand(CLI::App &app, Invocation &invocation) {
  const auto options = std::make_shared<CardUseOptions>();
  CLI::App *const command = app.add_subcommand("sign", "have a key of the card sign a file");
  addCardUseOptions(*command, *options);
  command
      ->add_option("--hash", options->hash,
                   "of the file; default: sha256, or none for an Ed25519 key")
      ->check(CLI::IsMember({"sha1", "sha256", "sha384", "sha512", "none"}));
  command->callback([options, &invocation] { invocation.outcome = sign(*options, invocation); });
}

}  // namespace ctl
