#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "base/Descriptor.hpp"
#include "base/Error.hpp"
#include "client/WaitLimits.hpp"

namespace client {

// How long a peer may be silent before the connection counts as lost.
struct TcpTimeouts {
  std::chrono::milliseconds connect;         // for all addresses together
  std::chrono::seconds idle;                 // before the first keepalive probe
  std::chrono::seconds interval;             // between the three probes
  std::chrono::milliseconds unacknowledged;  // TCP_USER_TIMEOUT, also for a full window
};

// Nothing is lost on the way to this machine's daemon, but the daemon's queue can be blocked for 30
// s, during which it reads nothing.
inline constexpr TcpTimeouts kLoopbackTimeouts{kDefaultWait, std::chrono::seconds(15),
                                               std::chrono::seconds(15), std::chrono::seconds(60)};

// Networks come and go. A lost one is detected after 18 s of silence (three probes included) or 15
// s after unacknowledged output. The kernel answers probes even while the daemon's queue is
// blocked.
inline constexpr TcpTimeouts kNetworkTimeouts{std::chrono::seconds(5), std::chrono::seconds(6),
                                              std::chrono::seconds(4), std::chrono::seconds(15)};

// Connects a TCP socket to a host name or numeric address: non-blocking, close-on-exec,
// TCP_NODELAY, with keepalive. Addresses are tried in order; each gets an equal share of the
// remaining time, so that a dead one does not use up all of it. Not open, with the reason
// (cannotResolve, unreachable, timedOut, stopped), if none accepts. Name resolution is not covered
// by `limits` and `timeouts`, which start after it.
[[nodiscard]] base::Descriptor connectTcp(const std::string &host, std::uint16_t port,
                                          const WaitLimits &limits, Error *error,
                                          const TcpTimeouts &timeouts = kLoopbackTimeouts);

}  // namespace client
