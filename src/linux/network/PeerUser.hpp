#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <cstdint>
#include <optional>

namespace platform_linux {

// The id of the user whose program made the other end of a connection within this machine
// (sock_diag(7)). Nothing if the system does not tell, or if that end is closed already: the system
// then calls it root's. Never blocks.
[[nodiscard]] std::optional<std::uint32_t> userOfPeer(const boost::asio::ip::tcp::endpoint &peer,
                                                      const boost::asio::ip::tcp::endpoint &own);

}  // namespace platform_linux
