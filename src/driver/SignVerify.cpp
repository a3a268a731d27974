#include "driver/SignVerify.hpp"

#include <algorithm>

#include "crypto/KeyParts.hpp"
#include "driver/Token.hpp"
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

// Bytes of a signature.
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

// What the holder is asked to sign: for RSA what it is to pad with PKCS #1 v1.5, or a block that is
// as long as the modulus; for ECDSA a digest; for Ed25519 the message. `input` is the digest of the
// message where the mechanism has one, else the message. CKR_DATA_LEN_RANGE if the input does not
// fit the mechanism and the key.
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

// The signature in what the holder answered, not yet verified; nothing if there is none.
std::optional<Bytes> signatureIn(const KeyUse &use, ByteView answer) {
  if (use.scheme() == Scheme::ecdsa) {
    return crypto::joinedSignature(answer, use.key().sizeInBytes());
  }
  return answer.size() == signatureSize(use) ? std::optional(Bytes(answer.begin(), answer.end()))
                                             : std::nullopt;
}

// CKR_OK, CKR_SIGNATURE_LEN_RANGE or CKR_SIGNATURE_INVALID.
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

Progress added(bool isAdded) {
  return isAdded ? Progress{CKR_OK, /*isOver=*/false} : Progress{CKR_DATA_LEN_RANGE};
}

}  // namespace

Progress Signing::add(ByteView part) {
  return added(input_.add(part));
}

Progress Signing::finish(Token &token, ByteView lastPart, const Output &output) {
  if (const auto ended = output.withoutRoomFor(signatureSize(use_))) {
    return *ended;
  }
  if (!input_.add(lastPart)) {
    return {CKR_DATA_LEN_RANGE};
  }
  const Bytes input = input_.finish();
  Bytes request;
  if (const CK_RV result = requestFor(use_, input, request); result != CKR_OK) {
    return {result};
  }
  SecretBytes answer;
  if (const CK_RV result = token.ask(KeyRequest::sign, *use_.object, request, answer);
      result != CKR_OK) {
    return {result};
  }
  const auto signature = signatureIn(use_, answer.reveal());
  if (!signature || verify(use_, input, *signature) != CKR_OK) {
    token.report("the key's holder answered with a signature that the certificate \"" +
                 use_.object->identity->label +
                 "\" does not verify, so it was not used; try: make sure that the device holds the "
                 "key that belongs to the certificate");
    return {CKR_DEVICE_ERROR};
  }
  return output.put(*signature);
}

Progress Verifying::add(ByteView part) {
  return added(input_.add(part));
}

Progress Verifying::finish(ByteView lastPart, ByteView signature) {
  return {input_.add(lastPart) ? verify(use_, input_.finish(), signature)
                               : CK_RV{CKR_DATA_LEN_RANGE}};
}

}  // namespace driver
