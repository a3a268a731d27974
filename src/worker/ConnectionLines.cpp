#include "worker/ConnectionLines.hpp"

#include "logging/StandardErrorLines.hpp"

namespace worker {

void warnConnectionFailed(const platform::Endpoint &peer, int errorNumber) {
  logging::warn(errorNumber, "connect to %s port %u (%s) failed", peer.host, peer.port, "tcp");
}

}  // namespace worker
