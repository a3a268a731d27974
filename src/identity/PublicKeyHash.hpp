#pragma once

#include <optional>

#include "base/Bytes.hpp"
#include "base/Error.hpp"
#include "crypto/PublicKey.hpp"

namespace identity {

// SHA-1 of the key's exported form, 20 bytes, by which pairing names a key. Nothing, with the
// reason, for a key that has no such form.
[[nodiscard]] std::optional<Bytes> publicKeyHashOf(const crypto::PublicKey &key,
                                                   Error *error = nullptr);

}  // namespace identity
