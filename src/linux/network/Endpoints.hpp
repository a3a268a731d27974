#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/Network.hpp"

namespace platform_linux {

// The address; if it is IPv4-mapped, the IPv4 address that it stands for.
[[nodiscard]] boost::asio::ip::address unmapped(const boost::asio::ip::address &from);

// The remote end of a connection: its address for people, and the source by which it is counted.
[[nodiscard]] platform::Endpoint endpointOf(const boost::asio::ip::tcp::endpoint &remote);

// The id of the user whose program made the other end of a connection within this machine
// (sock_diag(7)). Nothing if the system does not say, or if that end is already closed: the system
// then names root. Never blocks.
[[nodiscard]] std::optional<std::uint32_t> userOfPeer(const boost::asio::ip::tcp::endpoint &peer,
                                                      const boost::asio::ip::tcp::endpoint &own);

// The program that listens on this TCP port, as "NAME (process NUMBER)". Nothing if there is none
// or this user may not know. Reads /proc (proc(5)).
[[nodiscard]] std::optional<std::string> ownerOfPort(std::uint16_t port);

}  // namespace platform_linux
