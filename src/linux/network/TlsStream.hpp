#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <memory>

#include "crypto/TlsChannel.hpp"
#include "linux/network/Admission.hpp"
#include "platform/Network.hpp"

namespace platform_linux {

// An accepted socket with its TLS channel. A handshake owns it first, then a link.
struct TlsStream {
  boost::asio::ip::tcp::socket socket;
  platform::Endpoint peer;
  Place place;                                  // among the listener's connections
  std::unique_ptr<crypto::TlsChannel> channel;  // borrows the socket and so goes first

  // Closes the socket and gives back the place.
  void close() {
    boost::system::error_code ignored;
    socket.close(ignored);
    place.reset();
  }
};

}  // namespace platform_linux
