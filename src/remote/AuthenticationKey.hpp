#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "base/Bytes.hpp"
#include "base/Error.hpp"
#include "crypto/Identity.hpp"

namespace remote {

// The key's file in this program's folder.
[[nodiscard]] std::string authenticationKeyPath(const std::string &home);

// The key with which this program authenticates: an RSA key with a self-signed certificate. It is
// never a card key: programs on the other machine may have a card key sign anything, also a
// challenge. Made at first use (the folder with mode 0700, the file 0600). Nothing, with the
// reason, if it can't be read or made, or if others may read it.
[[nodiscard]] std::optional<crypto::Identity> authenticationKey(const std::string &home,
                                                                Error *error = nullptr);

// How long the daemon's challenges are.
inline constexpr std::size_t kChallengeBytes = 16;

// The signature that answers the challenge in a reply to `connect`. Nothing, with the error domain
// "challenge", if the challenge has another form: a signature of other data might be misused.
// Nothing, with the reason, if the key can't sign.
[[nodiscard]] std::optional<Bytes> answerToChallenge(const std::optional<Bytes> &challenge,
                                                     const crypto::Identity &authentication,
                                                     Error *error = nullptr);

}  // namespace remote
