#include "daemon/NetworkLimits.hpp"

#include <algorithm>

#include "support/Settings.hpp"

namespace kfyd {
namespace {

platform::Limit limitOf(const support::Bound &bound, platform::UserDefaults &defaults) {
  return {static_cast<std::uint64_t>(support::valueOf(bound, defaults)), bound.key};
}

}  // namespace

platform::ConnectionLimits connectionLimits(platform::UserDefaults &defaults) {
  return {limitOf(support::kMaxFrameBytes, defaults), limitOf(support::kMaxUnsentBytes, defaults),
          limitOf(support::kMaxBufferedBytes, defaults),
          limitOf(support::kStalledOutputSeconds, defaults)};
}

platform::ListenerLimits listenerLimits(platform::UserDefaults &defaults, bool isLoopback) {
  platform::ListenerLimits limits;
  limits.handshakeTime =
      std::chrono::seconds(support::valueOf(support::kHandshakeSeconds, defaults));
  limits.handshakes = limitOf(support::kMaxHandshakes, defaults);
  if (isLoopback) {
    // Half for one user: a crowd of his keeps no other user's program out.
    limits.handshakesPerSource = limits.handshakes;
    limits.handshakesPerSource.most = std::max<std::uint64_t>(limits.handshakes.most / 2, 1);
    limits.connections = limitOf(support::kMaxLocalConnections, defaults);
    limits.connectionsPerSource = limitOf(support::kMaxLocalConnectionsPerUser, defaults);
  } else {
    limits.handshakesPerSource = limitOf(support::kMaxHandshakesPerAddress, defaults);
    limits.connections = limitOf(support::kMaxPublicConnections, defaults);
    limits.connectionsPerSource = limitOf(support::kMaxConnectionsPerAddress, defaults);
  }
  return limits;
}

}  // namespace kfyd
