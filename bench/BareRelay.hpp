#pragma once

#include <cstdint>

#include "Child.hpp"
#include "crypto/Identity.hpp"

namespace bench {

// What the floor gives up for the other: a relay that is measured by time keeps the TLS library's
// buffers, one that is measured by memory frees those of idle connections.
enum class Saves { time, memory };

// The floor: a process of one thread that accepts TLS connections on a port of the loopback, with
// nothing between epoll and the TLS library that the daemon uses too. The first connection is the
// holder, to which goes each record of any other; each record of the holder goes to the connection
// whose record waits longest. So it does a relay's work for any number of clients without looking
// into a frame: the holder has to answer in order, in one record.
[[nodiscard]] Child runBareRelay(const crypto::Identity &identity, std::uint16_t port, Saves saves);

}  // namespace bench
