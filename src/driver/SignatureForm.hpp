#pragma once

#include <cstddef>
#include <optional>

#include "base/Bytes.hpp"
#include "driver/KeyUse.hpp"

namespace driver {

// What a mechanism makes of data: what travels to the key's holder, what comes back, and what the
// program gets. `input` is the digest of the message where the mechanism has one, else the message.

// Bytes of a signature.
[[nodiscard]] std::size_t signatureSize(const KeyUse &use);

// What the holder is asked to sign: for RSA what it is to pad with PKCS #1 v1.5, or a block that is
// as long as the modulus; for ECDSA a digest; for Ed25519 the message. CKR_DATA_LEN_RANGE if the
// input does not fit the mechanism and the key.
[[nodiscard]] CK_RV requestFor(const KeyUse &use, ByteView input, Bytes &request);

// The signature in what the holder answered, not yet verified; nothing if there is none.
[[nodiscard]] std::optional<Bytes> signatureIn(const KeyUse &use, ByteView answer);

// CKR_OK, CKR_SIGNATURE_LEN_RANGE or CKR_SIGNATURE_INVALID.
[[nodiscard]] CK_RV verify(const KeyUse &use, ByteView input, ByteView signature);

}  // namespace driver
