#include "driver/SignatureForm.hpp"

#include <algorithm>

#include "crypto/KeyParts.hpp"
#include "protocol/KeyRequest.hpp"

namespace driver {
namespace {

constexpr std::size_t kEd25519SignatureBytes = 64;  // RFC 8032 5.1.6

// What is padded with PKCS #1 v1.5: a DigestInfo, or the data as they are.
Bytes contentToPad(const KeyUse &use, ByteView input) {
  const auto &hash = use.mechanism->hash;
  return hash ? crypto::digestInfo(*hash, input) : Bytes(input.begin(), input.end());
}

// Shorter data stand at the end of the block, as numbers do; empty if they are longer.
Bytes blockOf(const KeyUse &use, ByteView input) {
  const std::size_t size = use.key().sizeInBytes();
  if (input.size() > size) {
    return {};
  }
  Bytes block(size);
  std::ranges::copy(input, block.end() - static_cast<std::ptrdiff_t>(input.size()));
  return block;
}

}  // namespace

std::size_t signatureSize(const KeyUse &use) {
  switch (use.key().type()) {
    case crypto::KeyType::rsa:
      return use.key().sizeInBytes();
    case crypto::KeyType::ec:
      return 2 * use.key().sizeInBytes();
    case crypto::KeyType::ed25519:
    case crypto::KeyType::other:
      break;
  }
  return kEd25519SignatureBytes;
}

CK_RV requestFor(const KeyUse &use, ByteView input, Bytes &request) {
  auto wanted = protocol::KeyOperation::signPKCS1;
  switch (use.scheme()) {
    case Scheme::rsaPKCS1:
      request = contentToPad(use, input);
      break;
    case Scheme::rsaBlock:
      wanted = protocol::KeyOperation::rawRSA;
      request = input.empty() ? Bytes() : blockOf(use, input);
      break;
    case Scheme::rsaPSS:
      wanted = protocol::KeyOperation::rawRSA;
      request = crypto::padPSS(input, use.parameters.pss, use.key().bits()).value_or(Bytes());
      break;
    case Scheme::ecdsa:
      wanted = protocol::KeyOperation::signECDSA;
      request.assign(input.begin(), input.end());
      break;
    case Scheme::eddsa:
      wanted = protocol::KeyOperation::signEd25519;
      request.assign(input.begin(), input.end());
      break;
    case Scheme::digest:
    case Scheme::rsaOAEP:
    case Scheme::ecdh:
      return CKR_MECHANISM_INVALID;
  }
  return protocol::operationToSign(use.key(), request) == wanted ? CKR_OK : CKR_DATA_LEN_RANGE;
}

std::optional<Bytes> signatureIn(const KeyUse &use, ByteView answer) {
  if (use.scheme() == Scheme::ecdsa) {
    return crypto::joinedSignature(answer, use.key().sizeInBytes());
  }
  return answer.size() == signatureSize(use) ? std::optional(Bytes(answer.begin(), answer.end()))
                                             : std::nullopt;
}

CK_RV verify(const KeyUse &use, ByteView input, ByteView signature) {
  if (signature.size() != signatureSize(use)) {
    return CKR_SIGNATURE_LEN_RANGE;
  }
  if (use.scheme() == Scheme::rsaPSS) {
    return crypto::verifyPSS(use.key(), signature, input, use.parameters.pss)
               ? CKR_OK
               : CKR_SIGNATURE_INVALID;
  }
  // as the key's holder would have answered
  const auto answer = use.scheme() == Scheme::ecdsa
                          ? crypto::derSignature(signature)
                          : std::optional(Bytes(signature.begin(), signature.end()));
  Bytes request;
  const bool isGood = answer && requestFor(use, input, request) == CKR_OK &&
                      protocol::isSignature(use.key(), request, *answer);
  return isGood ? CKR_OK : CKR_SIGNATURE_INVALID;
}

}  // namespace driver
