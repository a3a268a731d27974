#pragma once

#include <memory>
#include <optional>
#include <string>

#include "base/Bytes.hpp"
#include "base/Error.hpp"
#include "base/Secret.hpp"
#include "crypto/PublicKey.hpp"

namespace crypto {

// A private key. A cheap value: copies share the key, which is cleansed when the last one goes. The
// operations may be called from any thread.
class PrivateKey {
 public:
  // Takes shared ownership of an OpenSSL key; for this folder's own files.
  explicit PrivateKey(std::shared_ptr<evp_pkey_st> key) : key_(std::move(key)) {}

  // Fresh keys. Nothing only if the library has no randomness or memory.
  [[nodiscard]] static std::optional<PrivateKey> generateRSA(int bits, Error *error = nullptr);
  [[nodiscard]] static std::optional<PrivateKey> generateP256(Error *error = nullptr);

  // Reads an unencrypted PKCS #8 PrivateKeyInfo in DER (RFC 5958).
  [[nodiscard]] static std::optional<PrivateKey> fromPKCS8(ByteView der, Error *error = nullptr);

  // Reads the first private key in a PEM text; `password` where the key is encrypted (null: none).
  [[nodiscard]] static std::optional<PrivateKey> fromPEM(ByteView pem, const SecretText *password,
                                                         Error *error = nullptr);

  // The PKCS #8 forms, unencrypted.
  [[nodiscard]] SecretBytes pkcs8() const;
  [[nodiscard]] SecretBytes pem() const;

  [[nodiscard]] PublicKey publicKey() const { return PublicKey(key_); }

  // RSA: signs `data` itself, at most the modulus length less 11 bytes, with PKCS #1 v1.5 padding
  // (no digest, no DigestInfo: the caller puts one there where it wants one).
  [[nodiscard]] std::optional<Bytes> signRawPKCS1(ByteView data, Error *error = nullptr) const;

  // RSA: the private operation on one block as long as the modulus (RFC 8017 RSASP1 and RSADP). For
  // signing the block is already padded; for decryption the padding is still on.
  [[nodiscard]] std::optional<SecretBytes> rawRSA(ByteView block, Error *error = nullptr) const;

  // EC: a DER ECDSA-Sig-Value (RFC 3279 2.2.3) over `digest`.
  [[nodiscard]] std::optional<Bytes> signDigestECDSA(ByteView digest, Error *error = nullptr) const;

  // Ed25519: the 64-byte signature over `message` (RFC 8032).
  [[nodiscard]] std::optional<Bytes> signEd25519(ByteView message, Error *error = nullptr) const;

  // EC: the X coordinate of the point shared with the peer's uncompressed point (SEC 1, 3.3.1).
  [[nodiscard]] std::optional<SecretBytes> deriveECDH(ByteView peerPoint,
                                                      Error *error = nullptr) const;

  // For this folder's own files; borrowed.
  [[nodiscard]] evp_pkey_st *native() const { return key_.get(); }

 private:
  std::shared_ptr<evp_pkey_st> key_;
};

}  // namespace crypto
