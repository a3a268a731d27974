#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "base/Bytes.hpp"
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

// How long the daemon's challenges are.
inline constexpr std::size_t kChallengeBytes = 16;

// The proof that answers the challenge in a reply to `connect`. Nothing, with the domain
// "challenge", if it is none: whatever else it is, our signature might serve somewhere else.
// Otherwise nothing, with the reason, if the key can't sign.
[[nodiscard]] std::optional<Bytes> answerToChallenge(const std::optional<Bytes> &challenge,
                                                     const crypto::Identity &authentication,
                                                     Error *error = nullptr);

}  // namespace remote
