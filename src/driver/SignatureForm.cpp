#include "driver/SignatureForm.hpp"

#include <algorithm>

#include "crypto/KeyParts.hpp"
#include "crypto/Signature.hpp"

namespace driver {
namespace {

constexpr std::size_t kPaddingBytes = 11;  // the least of PKCS #1 v1.5 (RFC 8017 9.2)
constexpr std::size_t kLongestDigest = 64;
constexpr std::size_t kEd25519SignatureBytes = 64;  // RFC 8032 5.1.6

// What is padded with PKCS #1 v1.5: a DigestInfo, or the data as they are.
Bytes contentToPad(const KeyUse &use, ByteView input) {
  const auto &hash = use.mechanism->hash;
  return hash ? crypto::digestInfo(*hash, input) : Bytes(input.begin(), input.end());
}

// Shorter data stand at the end of the block, as numbers do; empty if they are longer.
Bytes blockOf(const KeyUse &use, ByteView input) {
  const std::size_t size = use.modulusBytes();
  if (input.size() > size) {
    return {};
  }
  Bytes block(size);
  std::ranges::copy(input, block.end() - static_cast<std::ptrdiff_t>(input.size()));
  return block;
}

bool isGood(const KeyUse &use, ByteView input, ByteView signature) {
  switch (use.scheme()) {
    case Scheme::rsaPKCS1:
      return use.key().verifyRawPKCS1(signature, contentToPad(use, input));
    case Scheme::rsaBlock: {
      const auto block = crypto::encryptBlock(use.key(), signature);
      return block && !input.empty() && *block == blockOf(use, input);
    }
    case Scheme::rsaPSS:
      return crypto::verifyPSS(use.key(), signature, input, use.parameters.pss);
    case Scheme::ecdsa: {
      const auto der = crypto::derSignature(signature);
      return der && !input.empty() && crypto::verifyDigestECDSA(use.key(), *der, input);
    }
    case Scheme::eddsa:
      return crypto::verifyEd25519(use.key(), signature, input);
    case Scheme::digest:
    case Scheme::rsaOAEP:
    case Scheme::ecdh:
      break;
  }
  return false;
}

}  // namespace

std::size_t signatureSize(const KeyUse &use) {
  switch (use.key().type()) {
    case crypto::KeyType::rsa:
      return use.modulusBytes();
    case crypto::KeyType::ec:
      return 2 * crypto::fieldBytesOf(use.key());
    case crypto::KeyType::ed25519:
    case crypto::KeyType::other:
      break;
  }
  return kEd25519SignatureBytes;
}

CK_RV requestFor(const KeyUse &use, ByteView input, Bytes &request) {
  bool isRightSize = true;
  switch (use.scheme()) {
    case Scheme::rsaPKCS1:
      request = contentToPad(use, input);
      isRightSize = request.size() + kPaddingBytes <= use.modulusBytes();
      break;
    case Scheme::rsaBlock:
      request = blockOf(use, input);
      isRightSize = !request.empty() && !input.empty();
      break;
    case Scheme::rsaPSS: {
      auto block = crypto::padPSS(input, use.parameters.pss, use.key().bits());
      isRightSize = block.has_value();
      request = std::move(block).value_or(Bytes());
      break;
    }
    case Scheme::ecdsa:
      request.assign(input.begin(), input.end());
      isRightSize = !input.empty() && input.size() <= kLongestDigest;
      break;
    case Scheme::eddsa:
      request.assign(input.begin(), input.end());
      break;
    case Scheme::digest:
    case Scheme::rsaOAEP:
    case Scheme::ecdh:
      return CKR_MECHANISM_INVALID;
  }
  return isRightSize ? CKR_OK : CKR_DATA_LEN_RANGE;
}

std::optional<Bytes> signatureIn(const KeyUse &use, ByteView answer) {
  if (use.scheme() == Scheme::ecdsa) {
    return crypto::joinedSignature(answer, crypto::fieldBytesOf(use.key()));
  }
  return answer.size() == signatureSize(use) ? std::optional(Bytes(answer.begin(), answer.end()))
                                             : std::nullopt;
}

CK_RV verify(const KeyUse &use, ByteView input, ByteView signature) {
  if (signature.size() != signatureSize(use)) {
    return CKR_SIGNATURE_LEN_RANGE;
  }
  return isGood(use, input, signature) ? CKR_OK : CKR_SIGNATURE_INVALID;
}

}  // namespace driver
