#include "linux/network/Admission.hpp"

#include <algorithm>
#include <utility>

#include "linux/network/Endpoints.hpp"

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

Place ConnectionCounter::take(const std::string &source) {
  // Made before anything is counted: if this throws, no count is left without a place.
  auto leave = [counts = counts_, source](const void * /*same*/) {
    --counts->all;
    const auto entry = counts->bySource.find(source);
    if (entry != counts->bySource.end() && --entry->second == 0) {
      counts->bySource.erase(entry);
    }
  };
  if (!source.empty()) {
    ++counts_->bySource[source];
  }
  ++counts_->all;
  return {counts_.get(), std::move(leave)};
}

std::size_t ConnectionCounter::of(const std::string &source) const {
  const auto entry = counts_->bySource.find(source);
  return entry == counts_->bySource.end() ? 0 : entry->second;
}

Candidate Admission::candidateAt(const boost::asio::ip::tcp::socket &socket) const {
  error_code ignored;  // a peer that has gone has no address; its handshake will fail
  const auto remote = socket.remote_endpoint(ignored);
  Candidate candidate;
  candidate.peer = endpointOf(remote);
  candidate.source = candidate.peer.source;
  candidate.name = "connection from " + candidate.peer.host;
  if (isLoopback_) {
    candidate.user = userOfPeer(remote, socket.local_endpoint(ignored));
    const std::string user =
        candidate.user ? "user " + std::to_string(*candidate.user) : "unknown user";
    candidate.source = candidate.user == kRoot ? "" : user;
    candidate.name += " of " + user;
  }
  return candidate;
}

std::optional<Limit> Admission::reachedUserLimit(const Candidate &candidate,
                                                 const ListenerLimits &limits) const {
  if (isLoopback_ && limits.users && !isAmong(*limits.users, candidate.user)) {
    return Limit{limits.users->size(), "localUsers"};
  }
  return std::nullopt;
}

std::optional<Limit> Admission::reachedSourceLimit(const Candidate &candidate,
                                                   const ListenerLimits &limits) const {
  if (candidate.source.empty()) {
    return std::nullopt;
  }
  if (handshakes_.of(candidate.source) >= limits.handshakesPerSource.most) {
    return limits.handshakesPerSource;
  }
  if (connections_.of(candidate.source) >= limits.connectionsPerSource.most) {
    return limits.connectionsPerSource;
  }
  return std::nullopt;
}

std::optional<Limit> Admission::reachedTotalLimit(const ListenerLimits &limits) const {
  if (handshakes_.all() >= limits.handshakes.most) {
    return limits.handshakes;
  }
  if (connections_.all() >= limits.connections.most) {
    return limits.connections;
  }
  return std::nullopt;
}

}  // namespace platform_linux
