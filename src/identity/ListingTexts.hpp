#pragma once

namespace identity {

// What `sc_auth identities` prints, which the daemon reads: the line of the token, then, if a key
// is paired, the line of its section and one line for each pairing, which begins with the hash.
inline constexpr const char *kListingTokenLine = "SmartCard: com.corvane.keyferry.ctkextension";
inline constexpr const char *kListingPairedLine =
    "Paired identities which are used for authentication";

}  // namespace identity
