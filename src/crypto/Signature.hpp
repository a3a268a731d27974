#pragma once

#include "base/Bytes.hpp"
#include "crypto/PublicKey.hpp"

namespace crypto {

// Judge signatures as they come from a card's key (see PublicKey::verifyRawPKCS1 for RSA). False
// for a key of another type.

// A DER ECDSA-Sig-Value (RFC 3279 2.2.3) over `digest`.
[[nodiscard]] bool verifyDigestECDSA(const PublicKey &key, ByteView signature, ByteView digest);

// The 64 bytes of an Ed25519 signature over `message` (RFC 8032).
[[nodiscard]] bool verifyEd25519(const PublicKey &key, ByteView signature, ByteView message);

}  // namespace crypto
