#include <CLI/CLI.hpp>
#include <memory>

#include "crypto/Padding.hpp"
#include "ctl/CardUse.hpp"
#include "ctl/Commands.hpp"
#include "ctl/DataStreams.hpp"
#include "protocol/KeyRequest.hpp"

namespace ctl {
namespace {

constexpr unsigned kForOwnerAlone = 0600;

struct DecryptOptions : CardUseOptions {
  std::string padding;
};

// Nothing, with `failure` filled, if the key can't decrypt or the input is not one block of it.
std::optional<Bytes> readBlock(const DecryptOptions &options, const crypto::PublicKey &key,
                               Invocation &invocation, Failure &failure) {
  if (key.type() != crypto::KeyType::rsa) {
    failure = {"a key of type " + key.description() + " cannot decrypt; an RSA key can",
               "kfyctl certificates"};
    return std::nullopt;
  }
  const auto input = readInput(options.in, invocation, failure);
  if (!input) {
    return std::nullopt;
  }
  if (!protocol::operationToDecrypt(key, *input)) {
    failure = {"an " + key.description() + " key decrypts one block of " +
                   std::to_string(key.sizeInBytes()) + " bytes, and the input has " +
                   std::to_string(input->size()),
               "kfyctl decrypt --help"};
    return std::nullopt;
  }
  return Bytes(input->begin(), input->end());
}

std::optional<SecretBytes> unpadded(const DecryptOptions &options, ByteView block) {
  if (options.padding == "pkcs1") {
    return crypto::unpadPKCS1(block);
  }
  const auto hash = crypto::hashAlgorithmNamed(options.hash);
  return hash ? crypto::unpadOAEP(block, *hash, *hash) : std::nullopt;
}

Outcome decrypt(const DecryptOptions &options, Invocation &invocation) {
  Failure failure;
  auto use = beginCardUse(options, failure);
  auto block = use ? readBlock(options, use->key, invocation, failure) : std::nullopt;
  const auto opened =
      block ? use->daemon.decrypt(use->certificateHash, std::move(*block), use->pin, failure)
            : std::nullopt;
  if (!opened) {
    return failure;
  }
  const auto message = unpadded(options, opened->reveal());
  if (!message) {
    return Failure{"the block was not encrypted for this key with this padding and hash",
                   "kfyctl decrypt --help"};
  }
  return writeOutput(options.out, message->reveal(), kForOwnerAlone, invocation);
}

}  // namespace

void addDecryptCommand(CLI::App &app, Invocation &invocation) {
  const auto options = std::make_shared<DecryptOptions>();
  options->hash = "sha1";
  CLI::App *const command = app.add_subcommand("decrypt", "have a key of the card decrypt a block");
  addCardUseOptions(*command, *options);
  command->add_option("--padding", options->padding, "oaep or pkcs1")
      ->required()
      ->check(CLI::IsMember({"oaep", "pkcs1"}));
  command->add_option("--hash", options->hash, "of OAEP and its mask; default: sha1")
      ->check(CLI::IsMember({"sha1", "sha256", "sha384", "sha512"}));
  command->callback([options, &invocation] { invocation.outcome = decrypt(*options, invocation); });
}

}  // namespace ctl
