#pragma once

#include <memory>
#include <optional>

#include "base/Error.hpp"
#include "client/Connection.hpp"

namespace client {

// Accepts exactly the servers that hold the key of this certificate: the public keys are compared,
// so a certificate that was renewed with the same key is still the right one.
[[nodiscard]] CertificateVerifier verifierForKeyOf(const crypto::Certificate &certificate);

// The verifier for this machine's own daemon, from base::kServerCertificate. Nothing, with the code
// pinUnusable, if there is no such file or it holds no certificate.
[[nodiscard]] std::optional<CertificateVerifier> loopbackVerifier(Error *error = nullptr);

// Opens a connection to this machine's own daemon.
[[nodiscard]] std::unique_ptr<Connection> openLoopback(const WaitLimits &limits = {},
                                                       Error *error = nullptr);

}  // namespace client
