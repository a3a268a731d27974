#include "driver/SignVerify.hpp"

#include <algorithm>

#include "crypto/KeyParts.hpp"
#include "driver/CardToken.hpp"
#include "protocol/KeyRequest.hpp"

namespace driver {
namespace {

constexpr std::size_t kEd25519SignatureBytes = 64;  // RFC 8032 5.1.6

// The input of PKCS #1 v1.5 padding: a DigestInfo, or the data unchanged.
Bytes contentToPad(const OperationKey &key, ByteView input) {
  const auto &hash = key.mechanism->hash;
  return hash ? crypto::digestInfo(*hash, input) : Bytes(input.begin(), input.end());
}

// Pads the data with zeros on the left, to the size of the modulus. Empty if the data is longer.
Bytes blockOf(const OperationKey &key, ByteView input) {
  const std::size_t size = key.publicKey().sizeInBytes();
  if (input.size() > size) {
    return {};
  }
  Bytes block(size);
  std::ranges::copy(input, block.end() - static_cast<std::ptrdiff_t>(input.size()));
  return block;
}

// The length of a signature in bytes.
std::size_t signatureSize(const OperationKey &key) {
  switch (key.publicKey().type()) {
    case crypto::KeyType::rsa:
      return key.publicKey().sizeInBytes();
    case crypto::KeyType::ec:
      return 2 * key.publicKey().sizeInBytes();
    case crypto::KeyType::ed25519:
    case crypto::KeyType::other:
      break;
  }
  return kEd25519SignatureBytes;
}

// The data that the holder is asked to sign. RSA: the content for PKCS #1 v1.5 padding, or a block
// of the modulus's size; ECDSA: a digest; Ed25519: the message. `input` is the digest of the
// message if the mechanism has one, otherwise the message. CKR_DATA_LEN_RANGE if the input does not
// fit the mechanism and the key.
CK_RV requestFor(const OperationKey &key, ByteView input, Bytes &request) {
  auto wanted = protocol::KeyOperation::signPKCS1;
  switch (key.scheme()) {
    case Scheme::rsaPKCS1:
      request = contentToPad(key, input);
      break;
    case Scheme::rsaRaw:
      wanted = protocol::KeyOperation::rawRSA;
      request = input.empty() ? Bytes() : blockOf(key, input);
      break;
    case Scheme::rsaPSS:
      wanted = protocol::KeyOperation::rawRSA;
      request = crypto::padPSS(input, key.parameters.pss, key.publicKey().bits()).value_or(Bytes());
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
  return protocol::operationToSign(key.publicKey(), request) == wanted ? CKR_OK
                                                                       : CKR_DATA_LEN_RANGE;
}

// The signature in the holder's answer, not yet verified; nothing if the answer is malformed.
std::optional<Bytes> signatureIn(const OperationKey &key, ByteView answer) {
  if (key.scheme() == Scheme::ecdsa) {
    return crypto::joinedSignature(answer, key.publicKey().sizeInBytes());
  }
  return answer.size() == signatureSize(key) ? std::optional(Bytes(answer.begin(), answer.end()))
                                             : std::nullopt;
}

// CKR_OK, CKR_SIGNATURE_LEN_RANGE or CKR_SIGNATURE_INVALID.
CK_RV verify(const OperationKey &key, ByteView input, ByteView signature) {
  if (signature.size() != signatureSize(key)) {
    return CKR_SIGNATURE_LEN_RANGE;
  }
  if (key.scheme() == Scheme::rsaPSS) {
    return crypto::verifyPSS(key.publicKey(), signature, input, key.parameters.pss)
               ? CKR_OK
               : CKR_SIGNATURE_INVALID;
  }
  // converted to the form of the holder's answer
  const auto answer = key.scheme() == Scheme::ecdsa
                          ? crypto::derSignature(signature)
                          : std::optional(Bytes(signature.begin(), signature.end()));
  Bytes request;
  const bool isGood = answer && requestFor(key, input, request) == CKR_OK &&
                      protocol::isSignature(key.publicKey(), request, *answer);
  return isGood ? CKR_OK : CKR_SIGNATURE_INVALID;
}

}  // namespace

Progress MessageOperation::add(ByteView part) {
  return input_.add(part) ? Progress{CKR_OK, /*isOver=*/false} : Progress{CKR_DATA_LEN_RANGE};
}

Progress SignOperation::finish(CardToken &token, ByteView lastPart, const OutputBuffer &output) {
  if (const auto ended = output.checkRoomFor(signatureSize(key_))) {
    return *ended;
  }
  if (!input_.add(lastPart)) {
    return {CKR_DATA_LEN_RANGE};
  }
  const Bytes input = input_.finish();
  Bytes request;
  if (const CK_RV result = requestFor(key_, input, request); result != CKR_OK) {
    return {result};
  }
  SecretBytes answer;
  if (const CK_RV result = token.request(CardOperation::sign, *key_.object, request, answer);
      result != CKR_OK) {
    return {result};
  }
  const auto signature = signatureIn(key_, answer.reveal());
  if (!signature || verify(key_, input, *signature) != CKR_OK) {
    token.report(
        "the signature from the key's holder does not verify with the certificate \"" +
        key_.object->identity->label +
        "\", so it was discarded; try: make sure that the device holds the certificate's key");
    return {CKR_DEVICE_ERROR};
  }
  return output.put(*signature);
}

Progress VerifyOperation::finish(ByteView lastPart, ByteView signature) {
  return {input_.add(lastPart) ? verify(key_, input_.finish(), signature)
                               : CK_RV{CKR_DATA_LEN_RANGE}};
}

}  // namespace driver
