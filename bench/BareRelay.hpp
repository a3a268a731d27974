#pragma once

#include <cstdint>

#include "Child.hpp"
#include "crypto/Identity.hpp"

namespace bench {

// The floor: a process that accepts two TLS connections on a port of the loopback and passes on
// what comes in at either, with nothing between epoll and the TLS library. It knows no frames.
[[nodiscard]] Child runBareRelay(const crypto::Identity &identity, std::uint16_t port);

}  // namespace bench
