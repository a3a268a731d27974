#pragma once

#include <optional>
#include <string>

#include "crypto/Identity.hpp"
#include "platform/ItemStore.hpp"

namespace identity {

// How an identity that is new to the keychain is described there: with the hash of its public key,
// as one whose key can do all that a key of its type can.
[[nodiscard]] platform::IdentityRecord describeNew(const crypto::Identity &identity,
                                                   const std::optional<std::string> &label);

}  // namespace identity
