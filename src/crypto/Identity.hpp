#pragma once

#include <optional>
#include <vector>

#include "base/Bytes.hpp"
#include "base/Error.hpp"
#include "base/Secret.hpp"
#include "crypto/Certificate.hpp"
#include "crypto/Pkcs12.hpp"
#include "crypto/PrivateKey.hpp"

namespace crypto {

// A certificate together with its private key.
struct Identity {
  Certificate certificate;
  PrivateKey key;
};

// True if the certificate is the key's.
[[nodiscard]] bool belongTogether(const Certificate &certificate, const PrivateKey &key);

// The identities that the keys of a PKCS #12 file make with its certificates: in the order of the
// keys, for each key in that of the certificates, no two alike. Nothing stands for a key that
// cannot be read. Left out are keys without a certificate, certificates without a key, and keys of
// an algorithm that is not RSA, EC, Ed25519 or Ed448, unless such a one belongs to a certificate
// (by its local key ID, or its algorithm). Takes time linear in the content, up to a logarithm.
[[nodiscard]] std::vector<std::optional<Identity>> identitiesIn(const Pkcs12Content &content);

// Reads one identity from PEM (a private key and its certificate, in any order, other certificates
// beside them allowed) or from PKCS #12 (RFC 7292). `password` for an encrypted key or file (null:
// none). Nothing, with the reason, if there is no key, no certificate that belongs to it, or the
// password does not fit (then the error's domain is "password").
[[nodiscard]] std::optional<Identity> readIdentity(ByteView file, const SecretText *password,
                                                   Error *error = nullptr);

}  // namespace crypto
