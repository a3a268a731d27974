#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/Network.hpp"

namespace platform_linux {

// The same address, an IPv4-mapped one as the IPv4 address that it stands for.
[[nodiscard]] boost::asio::ip::address unmapped(const boost::asio::ip::address &from);

// The other end of a connection, for people and for counting.
[[nodiscard]] platform::Endpoint endpointOf(const boost::asio::ip::tcp::endpoint &remote);

// The id of the user whose program made the other end of a connection within this machine
// (sock_diag(7)). Nothing if the system does not tell, or if that end is closed already: the system
// then calls it root's. Never blocks.
[[nodiscard]] std::optional<std::uint32_t> userOfPeer(const boost::asio::ip::tcp::endpoint &peer,
                                                      const boost::asio::ip::tcp::endpoint &own);

// The program that listens on this TCP port, as "NAME (process NUMBER)"; nothing if none does, or
// if it is not this user's to know. Reads /proc (proc(5)).
[[nodiscard]] std::optional<std::string> ownerOfPort(std::uint16_t port);

}  // namespace platform_linux
