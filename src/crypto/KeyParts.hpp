#pragma once

#include <cstddef>
#include <optional>

#include "base/Bytes.hpp"
#include "crypto/PublicKey.hpp"

namespace crypto {

// The numbers of an RSA public key, big-endian without leading zeros.
struct RSAParts {
  Bytes modulus;
  Bytes publicExponent;
};

// Nothing for a key of another type.
[[nodiscard]] std::optional<RSAParts> rsaPartsOf(const PublicKey &key);

// The DER object identifier that names an EC key's curve (RFC 5480 2.1.1.1), for P-256, P-384 and
// P-521; nothing for other curves and keys.
[[nodiscard]] std::optional<Bytes> curveIdentifierOf(const PublicKey &key);

// True if the bytes are an uncompressed point (SEC 1, 2.3.3) on the curve of this EC key.
[[nodiscard]] bool isPointFor(const PublicKey &key, ByteView point);

// An ECDSA signature in its two forms: the DER ECDSA-Sig-Value (RFC 3279 2.2.3), and r ‖ s, each of
// `fieldBytes` (PKCS #11 v2.40, 2.3.1). Nothing if the bytes are not exactly one, or a number does
// not fit.
[[nodiscard]] std::optional<Bytes> joinedSignature(ByteView der, std::size_t fieldBytes);
[[nodiscard]] std::optional<Bytes> derSignature(ByteView joined);

}  // namespace crypto
