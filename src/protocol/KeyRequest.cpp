#include "protocol/KeyRequest.hpp"

#include <algorithm>

#include "crypto/RSAEncryption.hpp"
#include "crypto/Signature.hpp"

namespace protocol {
namespace {

constexpr std::size_t kLeastPadding = 11;  // of PKCS #1 v1.5 (RFC 8017 9.2)
constexpr std::size_t kLongestDigest = 64;
constexpr std::uint8_t kUncompressed = 0x04;  // SEC 1, 2.3.3

std::optional<KeyOperation> onlyIf(bool fits, KeyOperation operation) {
  return fits ? std::optional(operation) : std::nullopt;
}

}  // namespace

std::optional<KeyOperation> operationToSign(const crypto::PublicKey &key, ByteView data) {
  switch (key.type()) {
    case crypto::KeyType::rsa:
      return data.size() == key.sizeInBytes()
                 ? KeyOperation::rawRSA
                 : onlyIf(data.size() <= mostToPad(key), KeyOperation::signPKCS1);
    case crypto::KeyType::ec:
      return onlyIf(!data.empty() && data.size() <= kLongestDigest, KeyOperation::signECDSA);
    case crypto::KeyType::ed25519:
      return KeyOperation::signEd25519;
    case crypto::KeyType::other:
      break;
  }
  return std::nullopt;
}

std::optional<KeyOperation> operationToDecrypt(const crypto::PublicKey &key, ByteView data) {
  const std::size_t size = key.sizeInBytes();
  switch (key.type()) {
    case crypto::KeyType::rsa:
      return onlyIf(data.size() == size, KeyOperation::rawRSA);
    case crypto::KeyType::ec:
      return onlyIf(data.size() == 1 + 2 * size && data.front() == kUncompressed,
                    KeyOperation::deriveECDH);
    case crypto::KeyType::ed25519:
    case crypto::KeyType::other:
      break;
  }
  return std::nullopt;
}

std::size_t mostToPad(const crypto::PublicKey &key) {
  // a certificate may hold a key of any size
  return key.sizeInBytes() - std::min(key.sizeInBytes(), kLeastPadding);
}

bool isSignature(const crypto::PublicKey &key, ByteView data, ByteView answer) {
  const auto operation = operationToSign(key, data);
  if (!operation) {
    return false;
  }
  switch (*operation) {
    case KeyOperation::signPKCS1:
      return key.verifyRawPKCS1(answer, data);
    case KeyOperation::rawRSA: {
      const auto block = crypto::encryptBlock(key, answer);
      return block && base::equal(*block, data);
    }
    case KeyOperation::signECDSA:
      return crypto::verifyDigestECDSA(key, answer, data);
    case KeyOperation::signEd25519:
      return crypto::verifyEd25519(key, answer, data);
    case KeyOperation::deriveECDH:
      break;
  }
  return false;
}

}  // namespace protocol
