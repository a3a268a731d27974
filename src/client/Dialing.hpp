#pragma once

#include <cstdint>
#include <string>

#include "base/Descriptor.hpp"
#include "base/Error.hpp"
#include "client/Patience.hpp"

namespace client {

// Connects a TCP socket to a host, given as a name or a numeric address: non-blocking, closed on
// exec, without delay, and with a keepalive that notices a peer that is gone after about a minute.
// Its addresses are tried in order, each for its share of the time, so that a dead one does not use
// up the time of the others. Not open, with the reason (cannotResolve, unreachable, timedOut,
// stopped), if none answers. The look-up of a name may take longer than `patience` says.
[[nodiscard]] base::Descriptor dial(const std::string &host, std::uint16_t port,
                                    const Patience &patience, Error *error);

}  // namespace client
