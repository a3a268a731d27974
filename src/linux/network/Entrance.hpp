#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <cstdint>
#include <optional>
#include <string>

#include "linux/network/Tally.hpp"
#include "platform/Network.hpp"

namespace platform_linux {

// Whoever has come to a listener.
struct Guest {
  platform::Endpoint peer;
  std::string source;                 // what is counted; empty: not counted by source
  std::optional<std::uint32_t> user;  // who comes to a loopback listener, if that can be told
  std::string name;                   // for people: "connection from 192.0.2.7"
};

// Says who may come in at a listener before any handshake is done, so that no refusal ends an
// established connection. An unfinished handshake counts as a connection as well: it may become
// one.
class Entrance {
 public:
  explicit Entrance(bool isLoopback) : isLoopback_(isLoopback) {}

  [[nodiscard]] Guest guestAt(const boost::asio::ip::tcp::socket &socket) const;

  // The limit for which this guest can't come in, whatever handshakes end.
  [[nodiscard]] std::optional<platform::Limit> refuses(
      const Guest &guest, const platform::ListenerLimits &limits) const;

  // The limit for which this guest can't come in as long as no handshake of its source ends.
  [[nodiscard]] std::optional<platform::Limit> isSourceFull(
      const Guest &guest, const platform::ListenerLimits &limits) const;

  // The limit for which nobody can come in as long as no handshake ends.
  [[nodiscard]] std::optional<platform::Limit> isFull(const platform::ListenerLimits &limits) const;

  // The guest's place among the unfinished handshakes, and among the connections.
  [[nodiscard]] Place takeHandshake(const Guest &guest) { return handshakes_.take(guest.source); }
  [[nodiscard]] Place takeConnection(const Guest &guest) { return connections_.take(guest.source); }

 private:
  bool isLoopback_;
  Tally handshakes_;
  Tally connections_;
};

}  // namespace platform_linux
