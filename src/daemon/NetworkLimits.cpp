#include "daemon/NetworkLimits.hpp"

#include <algorithm>

#include "settings/Settings.hpp"

namespace kfyd {
namespace {

platform::Limit limitOf(const settings::Bound &bound, platform::UserDefaults &defaults) {
  return {static_cast<std::uint64_t>(settings::valueOf(bound, defaults)), bound.key};
}

}  // namespace

platform::ConnectionLimits connectionLimits(platform::UserDefaults &defaults) {
  return {limitOf(settings::kMaxFrameBytes, defaults), limitOf(settings::kMaxUnsentBytes, defaults),
          limitOf(settings::kMaxBufferedBytes, defaults),
          limitOf(settings::kStalledOutputSeconds, defaults)};
}

platform::ListenerLimits listenerLimits(platform::UserDefaults &defaults, bool isLoopback) {
  platform::ListenerLimits limits;
  limits.handshakeTime =
      std::chrono::seconds(settings::valueOf(settings::kHandshakeSeconds, defaults));
  limits.handshakes = limitOf(settings::kMaxHandshakes, defaults);
  if (isLoopback) {
    // One user gets at most half, so that other users' programs are not kept out.
    limits.handshakesPerSource = limits.handshakes;
    limits.handshakesPerSource.most = std::max<std::uint64_t>(limits.handshakes.most / 2, 1);
    limits.connections = limitOf(settings::kMaxLocalConnections, defaults);
    limits.connectionsPerSource = limitOf(settings::kMaxLocalConnectionsPerUser, defaults);
  } else {
    limits.handshakesPerSource = limitOf(settings::kMaxHandshakesPerAddress, defaults);
    limits.connections = limitOf(settings::kMaxPublicConnections, defaults);
    limits.connectionsPerSource = limitOf(settings::kMaxConnectionsPerAddress, defaults);
  }
  return limits;
}

}  // namespace kfyd
