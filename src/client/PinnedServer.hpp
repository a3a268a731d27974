#pragma once

#include <memory>
#include <optional>

#include "base/Error.hpp"
#include "client/Connection.hpp"

namespace client {

// Accepts exactly the servers that hold the key of this certificate: the public keys are compared,
// so a certificate that was renewed with the same key is still the right one.
[[nodiscard]] Judge judgeByKeyOf(const crypto::Certificate &certificate);

// The judge for this machine's own daemon, from base::kServerCertificate. Nothing, with the code
// pinUnusable, if there is no such file or it holds no certificate.
[[nodiscard]] std::optional<Judge> loopbackJudge(Error *error = nullptr);

// Opens a connection to this machine's own daemon.
[[nodiscard]] std::unique_ptr<Connection> openLoopback(const Patience &patience = {},
                                                       Error *error = nullptr);

}  // namespace client
