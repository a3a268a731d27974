#pragma once

#include "base/Error.hpp"
#include "crypto/Certificate.hpp"

namespace identity {

// Where clients on this machine find the certificate that the daemon shows, to pin its public key.
inline constexpr const char *kPinnedCertificate = "/etc/keyferry/server.pem";

// Puts the certificate there, atomically and readable by all whatever the umask; nothing is written
// if it stands there already. False, with the reason, if that fails.
[[nodiscard]] bool publishPinnedCertificate(const crypto::Certificate &certificate,
                                            Error *error = nullptr);

}  // namespace identity
