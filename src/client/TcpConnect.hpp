#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "base/Descriptor.hpp"
#include "base/Error.hpp"
#include "client/WaitLimits.hpp"

namespace client {

// When a peer that does not answer counts as gone.
struct TcpTimeouts {
  std::chrono::milliseconds connect;         // to all addresses together
  std::chrono::seconds idle;                 // before the first keepalive probe
  std::chrono::seconds interval;             // between two of three probes
  std::chrono::milliseconds unacknowledged;  // output that waits, for an acknowledgement or room
};

// Nothing gets lost on the way to this machine's own daemon, but its queue can be blocked for half
// a minute, in which it makes no room.
inline constexpr TcpTimeouts kLoopbackTimeouts{kDefaultWait, std::chrono::seconds(15),
                                               std::chrono::seconds(15), std::chrono::seconds(60)};

// A network comes and goes: its return is noticed by the next attempt, and its loss after 18 s of
// silence, three probes included, or 15 s after output that arrives nowhere. The kernel answers for
// a daemon whose queue is blocked.
inline constexpr TcpTimeouts kNetworkTimeouts{std::chrono::seconds(5), std::chrono::seconds(6),
                                              std::chrono::seconds(4), std::chrono::seconds(15)};

// Connects a TCP socket to a host, given as a name or a numeric address: non-blocking, closed on
// exec, without delay, and with a keepalive. Its addresses are tried in order, each for its share
// of the time, so that a dead one does not use up the time of the others. Not open, with the reason
// (cannotResolve, unreachable, timedOut, stopped), if none answers. The look-up of a name may take
// longer than `limits` and `timeouts` say, which count from its end.
[[nodiscard]] base::Descriptor connectTcp(const std::string &host, std::uint16_t port,
                                          const WaitLimits &limits, Error *error,
                                          const TcpTimeouts &timeouts = kLoopbackTimeouts);

}  // namespace client
