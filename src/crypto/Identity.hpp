#pragma once

#include "base/Bytes.hpp"
#include "base/Error.hpp"
#include "base/Secret.hpp"
#include "crypto/Certificate.hpp"
#include "crypto/PrivateKey.hpp"

namespace crypto {

// A certificate together with its private key.
struct Identity {
  Certificate certificate;
  PrivateKey key;
};

// True if the certificate is the key's.
[[nodiscard]] bool belongTogether(const Certificate &certificate, const PrivateKey &key);

// Reads one identity from PEM (a private key and its certificate, in any order, other certificates
// beside them allowed) or from PKCS #12 (RFC 7292). `password` for an encrypted key or file (null:
// none). Nothing, with the reason, if there is no key, no certificate that belongs to it, or the
// password does not fit (then the error's domain is "password").
[[nodiscard]] std::optional<Identity> readIdentity(ByteView file, const SecretText *password,
                                                   Error *error = nullptr);

}  // namespace crypto
