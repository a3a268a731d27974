#include "ctl/SigningInput.hpp"

#include <cstddef>

#include "protocol/KeyRequest.hpp"

namespace ctl {
namespace {

constexpr const char *kNone = "none";

// A frame may have 2 MiB, and Base64 text takes half as much again.
constexpr std::size_t kLargestMessage = 1024 * 1024;

std::optional<Bytes> unhashed(const crypto::PublicKey &key, ByteView input, Failure &failure) {
  if (key.type() == crypto::KeyType::rsa && input.size() > protocol::mostToPad(key)) {
    failure = {"an " + key.description() + " key signs at most " +
                   std::to_string(protocol::mostToPad(key)) +
                   " bytes as they are, and the input has " + std::to_string(input.size()),
               "kfyctl sign --hash sha256 ..."};
    return std::nullopt;
  }
  if (input.size() > kLargestMessage) {
    failure = {"the input has " + std::to_string(input.size()) +
                   " bytes, and no request holds more than " + std::to_string(kLargestMessage),
               "kfyctl sign --help"};
    return std::nullopt;
  }
  return Bytes(input.begin(), input.end());
}

}  // namespace

std::optional<Bytes> dataToSign(const crypto::PublicKey &key, const HashChoice &choice,
                                ByteView input, Failure &failure) {
  const bool isEd25519 = key.type() == crypto::KeyType::ed25519;
  if (key.type() == crypto::KeyType::other) {
    failure = {"a key of type " + key.description() + " cannot sign here", "kfyctl certificates"};
    return std::nullopt;
  }
  if (choice == kNone || (choice.empty() && isEd25519)) {
    return unhashed(key, input, failure);
  }
  if (isEd25519) {
    failure = {"an Ed25519 key signs the message itself, without a hash",
               "kfyctl sign --hash none ...", exitWrongCommandLine};
    return std::nullopt;
  }
  const auto hash = crypto::hashAlgorithmNamed(choice.empty() ? "sha256" : choice);
  if (!hash) {
    failure = {"no hash is named \"" + choice + "\"", "kfyctl sign --help", exitWrongCommandLine};
    return std::nullopt;
  }
  const Bytes digest = crypto::digestOf(*hash, input);
  return key.type() == crypto::KeyType::rsa ? crypto::digestInfo(*hash, digest) : digest;
}

}  // namespace ctl
