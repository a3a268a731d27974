#pragma once

#include <string>
#include <vector>

#include "base/Bytes.hpp"
#include "remote/KeyRing.hpp"

namespace remote {

// What `kfy-remote keys` prints: the authentication key, as the one to pair, then the keys to
// insert. As lines for people or as one line of JSON; lines end without a line feed.
[[nodiscard]] std::vector<std::string> keyListing(const std::string &authenticationKeyPath,
                                                  ByteView authenticationKeyHash,
                                                  const KeyRing &keys);
[[nodiscard]] std::string keyListingAsJSON(const std::string &authenticationKeyPath,
                                           ByteView authenticationKeyHash, const KeyRing &keys);

}  // namespace remote
