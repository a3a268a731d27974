#pragma once

#include <memory>
#include <optional>

#include "base/Error.hpp"
#include "client/Connection.hpp"

namespace client {

// Accepts only servers with the key of this certificate. Public keys are compared, so a certificate
// that was renewed with the same key is still accepted.
[[nodiscard]] CertificateVerifier verifierForKeyOf(const crypto::Certificate &certificate);

// The verifier for this machine's daemon, from base::kServerCertificate. Nothing, with the code
// pinUnusable, if the file is missing or contains no certificate.
[[nodiscard]] std::optional<CertificateVerifier> loopbackVerifier(Error *error = nullptr);

// Opens a connection to this machine's daemon.
[[nodiscard]] std::unique_ptr<Connection> openLoopback(const WaitLimits &limits = {},
                                                       Error *error = nullptr);

}  // namespace client
