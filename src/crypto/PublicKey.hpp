#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "base/Bytes.hpp"
#include "base/Error.hpp"

struct evp_pkey_st;

namespace crypto {

enum class KeyType { rsa, ec, ed25519, other };

// A public key. A cheap value: copies share the key.
class PublicKey {
 public:
  // Takes shared ownership of an OpenSSL key; for this folder's own files.
  explicit PublicKey(std::shared_ptr<evp_pkey_st> key) : key_(std::move(key)) {}

  [[nodiscard]] KeyType type() const;

  // Size of an RSA modulus or of a curve's field, in bits.
  [[nodiscard]] int bits() const;

  // The same in bytes: what a block of an RSA key has, or a coordinate of an EC key.
  [[nodiscard]] std::size_t sizeInBytes() const {
    return (static_cast<std::size_t>(bits()) + 7) / 8;
  }

  // For people: "RSA-2048", "EC prime256v1", "Ed25519".
  [[nodiscard]] std::string description() const;

  // The exported bytes: for RSA the DER PKCS #1 RSAPublicKey (RFC 8017 A.1.1), for an elliptic
  // curve the uncompressed point 04 ‖ X ‖ Y (SEC 1, 2.3.3), for Ed25519 the 32 bytes of RFC 8032.
  // Nothing, with the reason, for any other key.
  [[nodiscard]] std::optional<Bytes> externalRepresentation(Error *error = nullptr) const;

  // SHA-1 of the exported bytes, 20 bytes, by which pairing, cards and the keychain name a key.
  // Nothing, with the reason, where nothing can be exported.
  [[nodiscard]] std::optional<Bytes> hash(Error *error = nullptr) const;

  // The DER SubjectPublicKeyInfo (RFC 5280 4.1).
  [[nodiscard]] Bytes subjectPublicKeyInfo() const;

  // True if `signature` is an RSA signature over `data` itself with PKCS #1 v1.5 padding: no
  // digest, no DigestInfo. False for a key that is not RSA.
  [[nodiscard]] bool verifyRawPKCS1(ByteView signature, ByteView data) const;

  // For this folder's own files; borrowed.
  [[nodiscard]] evp_pkey_st *native() const { return key_.get(); }

 private:
  std::shared_ptr<evp_pkey_st> key_;
};

}  // namespace crypto
