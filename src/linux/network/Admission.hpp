#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

#include "platform/Network.hpp"

namespace platform_linux {

// A place in a count. It is free again when the last copy of this goes.
using Place = std::shared_ptr<const void>;

// Counts connections, in total and by source.
class ConnectionCounter {
 public:
  // Takes a place for `source`. An empty source counts in the total alone.
  [[nodiscard]] Place take(const std::string &source);

  [[nodiscard]] std::size_t all() const { return counts_->all; }
  [[nodiscard]] std::size_t of(const std::string &source) const;

 private:
  struct Counts {
    std::size_t all = 0;
    std::unordered_map<std::string, std::size_t> bySource;
  };

  std::shared_ptr<Counts> counts_ = std::make_shared<Counts>();  // places may outlive this object
};

// An accepted socket that asks to become a connection.
struct Candidate {
  platform::Endpoint peer;
  std::string source;                 // by which it is counted; empty: in the total alone
  std::optional<std::uint32_t> user;  // of the program at a loopback listener, if known
  std::string name;                   // for people: "connection from 192.0.2.7"
};

// Decides who may connect to a listener. It does so before the handshake, so that no refusal ends
// an established connection. An unfinished handshake counts as a connection too: it may become one.
class Admission {
 public:
  explicit Admission(bool isLoopback) : isLoopback_(isLoopback) {}

  [[nodiscard]] Candidate candidateAt(const boost::asio::ip::tcp::socket &socket) const;

  // The limit that forbids this candidate's user, if one does.
  [[nodiscard]] std::optional<platform::Limit> reachedUserLimit(
      const Candidate &candidate, const platform::ListenerLimits &limits) const;

  // The limit that the candidate's source has reached, if any. A handshake that ends makes room.
  [[nodiscard]] std::optional<platform::Limit> reachedSourceLimit(
      const Candidate &candidate, const platform::ListenerLimits &limits) const;

  // The limit that all sources together have reached, if any. A handshake that ends makes room.
  [[nodiscard]] std::optional<platform::Limit> reachedTotalLimit(
      const platform::ListenerLimits &limits) const;

  // Take a place for the candidate among the unfinished handshakes and among the connections.
  [[nodiscard]] Place takeHandshake(const Candidate &candidate) {
    return handshakes_.take(candidate.source);
  }
  [[nodiscard]] Place takeConnection(const Candidate &candidate) {
    return connections_.take(candidate.source);
  }

 private:
  bool isLoopback_;
  ConnectionCounter handshakes_;
  ConnectionCounter connections_;
};

}  // namespace platform_linux
