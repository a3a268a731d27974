#pragma once

#include <optional>
#include <string>

#include "base/Error.hpp"
#include "crypto/Identity.hpp"

namespace remote {

// Where the key stands in the folder of this program.
[[nodiscard]] std::string authenticationKeyPath(const std::string &home);

// The key with which this program proves who it is: an RSA key with a self-signed certificate that
// is never a card key, since programs on the other machine may have card keys sign what they like,
// a challenge included. Made at first use (the folder with mode 0700, the file 0600). Nothing, with
// the reason, if it can't be read or made, or if others may read it.
[[nodiscard]] std::optional<crypto::Identity> authenticationKey(const std::string &home,
                                                                Error *error = nullptr);

}  // namespace remote
