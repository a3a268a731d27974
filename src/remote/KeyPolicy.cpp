#include "remote/KeyPolicy.hpp"

#include "crypto/HashAlgorithm.hpp"
#include "crypto/PSS.hpp"
#include "crypto/Padding.hpp"

namespace remote {
namespace {

// Signatures with a fixed padding can be forged if an attacker chooses a third of the modulus
// (Brier, Clavier, Coron, Naccache, CRYPTO 2001). A digest has at most 512 bits, a quarter of 2048.
constexpr int kLeastSharedBits = 2048;

KeyVerdict allow(KeyOperation operation, std::string description) {
  return {operation, std::move(description)};
}

KeyVerdict refuse(std::string reason) {
  return {std::nullopt, std::move(reason)};
}

std::string countOf(ByteView data) {
  return std::to_string(data.size()) + (data.size() == 1 ? " byte" : " bytes");
}

// Judges the content of a PKCS #1 v1.5 padding, whether the operation adds the padding or the block
// already has it.
KeyVerdict judgePKCS1Content(KeyOperation operation, ByteView content, bool authenticates) {
  if (const auto algorithm = crypto::hashOfDigestInfo(content)) {
    return allow(operation, std::string("a ") + crypto::nameOf(*algorithm) + " digest");
  }
  if (authenticates) {
    return refuse(countOf(content) + " of data are no digest, and the key authenticates");
  }
  return allow(operation, countOf(content) + " of data");
}

KeyVerdict judgePaddedBlock(const crypto::PublicKey &key, ByteView block, bool authenticates) {
  if (const auto content = crypto::contentOfPKCS1Block(block)) {
    return judgePKCS1Content(KeyOperation::rawRSA, *content, authenticates);
  }
  // The asker has padded the block for PSS, and this side only recognises it: raw RSA is all that
  // the protocol has for PSS.
  if (const auto algorithm = crypto::hashOfPSSBlock(block, key.bits())) {
    return allow(KeyOperation::rawRSA,
                 std::string("a ") + crypto::nameOf(*algorithm) + " digest with PSS padding");
  }
  if (authenticates) {
    return refuse("the block is of no known padding, and the key authenticates");
  }
  return allow(KeyOperation::rawRSA, "a block of " + countOf(block));
}

KeyVerdict judgeRSASigning(const crypto::PublicKey &key, ByteView data, bool authenticates) {
  if (authenticates && key.bits() < kLeastSharedBits) {
    return refuse("the key authenticates and is shorter than " + std::to_string(kLeastSharedBits) +
                  " bits");
  }
  const auto operation = protocol::operationToSign(key, data);
  if (!operation) {
    return refuse(countOf(data) + " are too long for the key and no block of it");
  }
  return *operation == KeyOperation::rawRSA ? judgePaddedBlock(key, data, authenticates)
                                            : judgePKCS1Content(*operation, data, authenticates);
}

}  // namespace

KeyVerdict judgeSigning(const crypto::PublicKey &key, ByteView data, bool authenticates) {
  if (key.type() == crypto::KeyType::rsa) {
    return judgeRSASigning(key, data, authenticates);
  }
  const auto operation = protocol::operationToSign(key, data);
  if (operation) {
    return allow(
        *operation,
        (*operation == KeyOperation::signECDSA ? "a digest of " : "a message of ") + countOf(data));
  }
  return refuse(key.type() == crypto::KeyType::ec ? countOf(data) + " are no digest"
                                                  : "the key can't sign");
}

KeyVerdict judgeDecryption(const crypto::PublicKey &key, ByteView data, bool authenticates) {
  const auto operation = protocol::operationToDecrypt(key, data);
  switch (key.type()) {
    case crypto::KeyType::rsa:
      if (!operation) {
        return refuse(countOf(data) + " are no block of the key");
      }
      if (authenticates) {
        return refuse("decryption can also sign a challenge, and the key authenticates");
      }
      return allow(*operation, "a block of " + countOf(data));
    case crypto::KeyType::ec:
      return operation ? allow(*operation, "a shared secret with another key")
                       : refuse(countOf(data) + " are no point of the key's curve");
    case crypto::KeyType::ed25519:
    case crypto::KeyType::other:
      break;
  }
  return refuse("the key can't decrypt");
}

std::optional<SecretBytes> perform(KeyOperation operation, const crypto::PrivateKey &key,
                                   ByteView data, Error *error) {
  const auto secret = [](const std::optional<Bytes> &signature) {
    return signature ? std::optional(SecretBytes(ByteView(*signature))) : std::nullopt;
  };
  switch (operation) {
    case KeyOperation::signPKCS1:
      return secret(key.signRawPKCS1(data, error));
    case KeyOperation::rawRSA:
      return key.rawRSA(data, error);
    case KeyOperation::signECDSA:
      return secret(key.signDigestECDSA(data, error));
    case KeyOperation::signEd25519:
      return secret(key.signEd25519(data, error));
    case KeyOperation::deriveECDH:
      return key.deriveECDH(data, error);
  }
  return std::nullopt;
}

}  // namespace remote
