#include "ctl/Signing.hpp"

#include <algorithm>
#include <cstddef>

#include "crypto/Signature.hpp"

namespace ctl {
namespace {

constexpr const char *kNone = "none";

// PKCS #1 v1.5 padding takes at least this much of the modulus (RFC 8017 9.2).
constexpr std::size_t kLeastPadding = 11;

// A frame may have 2 MiB, and Base64 text takes half as much again.
constexpr std::size_t kLargestMessage = 1024 * 1024;

// The most that a key of this size signs as it is.
std::size_t mostUnhashed(const crypto::PublicKey &key) {
  const std::size_t modulus = (static_cast<std::size_t>(key.bits()) + 7) / 8;
  // a card's certificate may hold a key of any size
  return modulus - std::min(modulus, kLeastPadding);
}

std::optional<Bytes> unhashed(const crypto::PublicKey &key, ByteView input, Failure &failure) {
  if (key.type() == crypto::KeyType::rsa && input.size() > mostUnhashed(key)) {
    failure = {"an " + key.description() + " key signs at most " +
                   std::to_string(mostUnhashed(key)) + " bytes as they are, and the input has " +
                   std::to_string(input.size()),
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

bool isSignature(const crypto::PublicKey &key, ByteView signature, ByteView data) {
  switch (key.type()) {
    case crypto::KeyType::rsa:
      return key.verifyRawPKCS1(signature, data);
    case crypto::KeyType::ec:
      return crypto::verifyDigestECDSA(key, signature, data);
    case crypto::KeyType::ed25519:
      return crypto::verifyEd25519(key, signature, data);
    case crypto::KeyType::other:
      break;
  }
  return false;
}

}  // namespace ctl
