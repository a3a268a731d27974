#pragma once

#include "base/Error.hpp"
#include "crypto/Certificate.hpp"

namespace identity {

// Puts the certificate at base::kServerCertificate, atomically and readable by all whatever the
// umask; nothing is written if it stands there already. False, with the reason, if that fails.
[[nodiscard]] bool publishPinnedCertificate(const crypto::Certificate &certificate,
                                            Error *error = nullptr);

}  // namespace identity
