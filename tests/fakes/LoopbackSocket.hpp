#pragma once

#include <arpa/inet.h>

#include <bit>

#include "base/Descriptor.hpp"

namespace fakes {

// A socket on this loopback port, or a free one for 0, where nobody listens yet.
inline base::Descriptor boundToLoopback(std::uint16_t &port) {
  base::Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const int reuse = 1;  // earlier connections on this port may be remembered
  ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
  sockaddr_in loopback{};
  loopback.sin_family = AF_INET;
  loopback.sin_port = htons(port);
  loopback.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  auto address = std::bit_cast<sockaddr>(loopback);
  socklen_t size = sizeof address;
  if (!socket.isOpen() || ::bind(socket.get(), &address, size) != 0 ||
      ::getsockname(socket.get(), &address, &size) != 0) {
    throw std::runtime_error("no loopback socket");
  }
  port = ntohs(std::bit_cast<sockaddr_in>(address).sin_port);
  return socket;
}

// Closes a connection so that its peer gets a reset.
inline void reset(base::Descriptor &connection) {
  const linger hard{1, 0};
  ::setsockopt(connection.get(), SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
  connection.close();
}

}  // namespace fakes
