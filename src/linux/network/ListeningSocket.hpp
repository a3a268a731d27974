#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <cstdint>
#include <string>

#include "platform/Network.hpp"

namespace platform_linux {

// Binds `acceptor` to a numeric address and a port (0: a free one) and listens, without blocking.
// "::" takes IPv4 as well, and is 0.0.0.0 where there is no IPv6. Returns 0, or why that is not
// possible.
[[nodiscard]] int listenOn(boost::asio::ip::tcp::acceptor &acceptor, const std::string &host,
                           std::uint16_t port);

// Makes an accepted socket non-blocking and sets its keepalive.
void prepareAccepted(boost::asio::ip::tcp::socket &socket,
                     const platform::ListenerParameters &parameters);

}  // namespace platform_linux
