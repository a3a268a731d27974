#pragma once

#include <optional>

#include "base/Bytes.hpp"
#include "crypto/HashAlgorithm.hpp"
#include "crypto/PublicKey.hpp"

namespace crypto {

// What an RSA public key does with data (RFC 8017). Each gives nothing for another kind of key and
// for data that are too long for it.

// The bare operation (RSAEP, RSAVP1) on a block as long as the modulus.
[[nodiscard]] std::optional<Bytes> encryptBlock(const PublicKey &key, ByteView block);

// With the encryption padding of PKCS #1 v1.5 (7.2.1).
[[nodiscard]] std::optional<Bytes> encryptPKCS1(const PublicKey &key, ByteView data);

// OAEP (7.1). `maskHash` is the digest inside the mask generation function MGF1.
struct OAEPParameters {
  HashAlgorithm hash = HashAlgorithm::sha1;
  HashAlgorithm maskHash = HashAlgorithm::sha1;
  Bytes label;
};

[[nodiscard]] std::optional<Bytes> encryptOAEP(const PublicKey &key, ByteView data,
                                               const OAEPParameters &parameters);

}  // namespace crypto
