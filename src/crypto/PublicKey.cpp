#include "crypto/PublicKey.hpp"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <array>

#include "crypto/Digest.hpp"
#include "crypto/Library.hpp"
#include "crypto/Owned.hpp"

namespace crypto {
namespace {

// What an encoder has allocated, as bytes of ours; empty if it failed.
Bytes taken(std::uint8_t *encoded, std::size_t length) {
  Bytes bytes(encoded, encoded == nullptr ? nullptr : encoded + length);
  OPENSSL_free(encoded);
  return bytes;
}

Bytes pkcs1PublicKey(const EVP_PKEY *key) {
  std::uint8_t *encoded = nullptr;
  const int length = i2d_PublicKey(key, &encoded);
  return length <= 0 ? Bytes() : taken(encoded, static_cast<std::size_t>(length));
}

// Uncompressed whatever form the certificate holds.
Bytes publicPoint(EVP_PKEY *key) {
  std::uint8_t *encoded = nullptr;
  const std::size_t length = EVP_PKEY_get1_encoded_public_key(key, &encoded);
  return taken(encoded, length);
}

Bytes rawPublicKey(const EVP_PKEY *key) {
  Bytes bytes(32);
  std::size_t length = bytes.size();
  return EVP_PKEY_get_raw_public_key(key, bytes.data(), &length) == 1 ? bytes : Bytes();
}

}  // namespace

KeyType PublicKey::type() const {
  if (EVP_PKEY_is_a(native(), "RSA") == 1) {
    return KeyType::rsa;
  }
  if (EVP_PKEY_is_a(native(), "EC") == 1) {
    return KeyType::ec;
  }
  return EVP_PKEY_is_a(native(), "ED25519") == 1 ? KeyType::ed25519 : KeyType::other;
}

int PublicKey::bits() const {
  return EVP_PKEY_get_bits(native());
}

std::string PublicKey::description() const {
  switch (type()) {
    case KeyType::rsa:
      return "RSA-" + std::to_string(bits());
    case KeyType::ec: {
      std::array<char, 64> group{};
      const bool isNamed =
          EVP_PKEY_get_group_name(native(), group.data(), group.size(), nullptr) == 1;
      ERR_clear_error();
      return isNamed ? std::string("EC ") + group.data() : "EC " + std::to_string(bits());
    }
    case KeyType::ed25519:
      return "Ed25519";
    case KeyType::other:
      break;
  }
  const char *name = EVP_PKEY_get0_type_name(native());
  return name == nullptr ? "unknown" : name;
}

std::optional<Bytes> PublicKey::externalRepresentation(Error *error) const {
  ERR_clear_error();
  Bytes exported;
  switch (type()) {
    case KeyType::rsa:
      exported = pkcs1PublicKey(native());
      break;
    case KeyType::ec:
      exported = publicPoint(native());
      break;
    case KeyType::ed25519:
      exported = rawPublicKey(native());
      break;
    case KeyType::other:
      base::report(error, "crypto", 0, "a key of type " + description() + " has no exported form");
      return std::nullopt;
  }
  if (exported.empty()) {
    reportLibraryError(error, "cannot export the public key");
    return std::nullopt;
  }
  return exported;
}

std::optional<Bytes> PublicKey::hash(Error *error) const {
  const auto exported = externalRepresentation(error);
  return exported ? std::optional(sha1Digest(*exported)) : std::nullopt;
}

Bytes PublicKey::subjectPublicKeyInfo() const {
  std::uint8_t *encoded = nullptr;
  const int length = i2d_PUBKEY(native(), &encoded);
  ERR_clear_error();
  return length <= 0 ? Bytes() : taken(encoded, static_cast<std::size_t>(length));
}

bool PublicKey::verifyRawPKCS1(ByteView signature, ByteView data) const {
  // RFC 8017 8.2.2 step 1; the library takes shorter ones
  if (type() != KeyType::rsa || signature.size() != sizeInBytes()) {
    return false;
  }
  const Owned<EVP_PKEY_CTX, EVP_PKEY_CTX_free> context(
      EVP_PKEY_CTX_new_from_pkey(libraryContext(), native(), nullptr));
  const bool isValid = context && EVP_PKEY_verify_init(context.get()) == 1 &&
                       EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) == 1 &&
                       EVP_PKEY_verify(context.get(), signature.data(), signature.size(),
                                       data.data(), data.size()) == 1;
  ERR_clear_error();
  return isValid;
}

}  // namespace crypto
