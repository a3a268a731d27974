#pragma once

#include "requests/Request.hpp"

namespace requests {

// A file here lets every client choose its own key: the first one that it lists.
inline constexpr const char *kUserVerificationMarker =
    "/Library/Application Support/Keyferry/.disableuserverification";

// `connect`: answers with the public-key hash that is paired with a user of this machine, and a
// fresh challenge. Blocks while the pairing listing finds nothing.
void handleConnect(Request &request);

// `authenticate`: checks certificate and signature; a failure ends the connection after its reply.
void handleAuthenticate(Request &request);

}  // namespace requests
