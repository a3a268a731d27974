#include "linux/network/Entrance.hpp"

#include <algorithm>

#include "linux/network/Endpoints.hpp"
#include "linux/network/PeerUser.hpp"

namespace platform_linux {
namespace {

using boost::system::error_code;
using platform::Limit;
using platform::ListenerLimits;

constexpr std::uint32_t kRoot = 0;

bool isAmong(const std::vector<std::uint32_t> &users, std::optional<std::uint32_t> user) {
  return user == kRoot || (user && std::ranges::find(users, *user) != users.end());
}

}  // namespace

Guest Entrance::guestAt(const boost::asio::ip::tcp::socket &socket) const {
  error_code ignored;  // a peer that has gone has no address, and its handshake fails
  const auto remote = socket.remote_endpoint(ignored);
  Guest guest;
  guest.peer = endpointOf(remote);
  guest.source = guest.peer.source;
  guest.name = "connection from " + guest.peer.host;
  if (isLoopback_) {
    guest.user = userOfPeer(remote, socket.local_endpoint(ignored));
    const std::string user = guest.user ? "user " + std::to_string(*guest.user) : "unknown user";
    guest.source = guest.user == kRoot ? "" : user;
    guest.name += " of " + user;
  }
  return guest;
}

std::optional<Limit> Entrance::refuses(const Guest &guest, const ListenerLimits &limits) const {
  if (isLoopback_ && limits.users && !isAmong(*limits.users, guest.user)) {
    return Limit{limits.users->size(), "localUsers"};
  }
  return std::nullopt;
}

std::optional<Limit> Entrance::isSourceFull(const Guest &guest,
                                            const ListenerLimits &limits) const {
  if (guest.source.empty()) {
    return std::nullopt;
  }
  if (handshakes_.of(guest.source) >= limits.handshakesPerSource.most) {
    return limits.handshakesPerSource;
  }
  if (connections_.of(guest.source) >= limits.connectionsPerSource.most) {
    return limits.connectionsPerSource;
  }
  return std::nullopt;
}

std::optional<Limit> Entrance::isFull(const ListenerLimits &limits) const {
  if (handshakes_.all() >= limits.handshakes.most) {
    return limits.handshakes;
  }
  if (connections_.all() >= limits.connections.most) {
    return limits.connections;
  }
  return std::nullopt;
}

}  // namespace platform_linux
