#pragma once

#include <boost/asio/ip/tcp.hpp>

#include "platform/Network.hpp"

namespace platform_linux {

// The same address, an IPv4-mapped one as the IPv4 address that it stands for.
[[nodiscard]] boost::asio::ip::address unmapped(const boost::asio::ip::address &from);

// The other end of a connection, for people and for counting.
[[nodiscard]] platform::Endpoint endpointOf(const boost::asio::ip::tcp::endpoint &remote);

}  // namespace platform_linux
