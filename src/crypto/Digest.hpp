#pragma once

#include "base/Bytes.hpp"

namespace crypto {

// SHA-1 (20 bytes) and SHA-256 (32 bytes) of all bytes, FIPS 180-4.
[[nodiscard]] Bytes sha1Digest(ByteView bytes);
[[nodiscard]] Bytes sha256Digest(ByteView bytes);

}  // namespace crypto
