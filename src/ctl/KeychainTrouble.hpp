#pragma once

#include <optional>

#include "ctl/Invocation.hpp"
#include "ctl/Outcome.hpp"

namespace ctl {

// Where the keychain lies, below the root.
inline constexpr const char *kKeychainPath = "/var/lib/keyferry/keychain.db";

// Why the invocation's store could not be used for its last operation, and what to do about it.
[[nodiscard]] Failure keychainUnusable(const Invocation &invocation);

// What stands in the way of the next change of a keychain that can still be read: a disk that is
// full or read-only, a file that is empty. Nothing if all is well or there is no keychain yet.
[[nodiscard]] std::optional<Failure> troubleAheadOfKeychain();

}  // namespace ctl
