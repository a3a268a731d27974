#pragma once

#include <string>
#include <vector>

#include "base/Bytes.hpp"
#include "remote/KeyRing.hpp"

namespace remote {

// What `kfy-remote keys` prints: the authentication key, which is the one to pair, then the card's
// keys. Either lines for people or one line of JSON, without line feeds.
[[nodiscard]] std::vector<std::string> keyListing(const std::string &authenticationKeyPath,
                                                  ByteView authenticationKeyHash,
                                                  const KeyRing &keys);
[[nodiscard]] std::string keyListingAsJSON(const std::string &authenticationKeyPath,
                                           ByteView authenticationKeyHash, const KeyRing &keys);

}  // namespace remote
