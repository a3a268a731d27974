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

// A place that is taken as long as this is held.
using Place = std::shared_ptr<const void>;

// Counts what is there, in all and by where it came from.
class ConnectionCounter {
 public:
  // Takes a place for `source`; one without a name counts in all alone.
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

// Whoever has come to a listener.
struct Candidate {
  platform::Endpoint peer;
  std::string source;                 // what is counted; empty: not counted by source
  std::optional<std::uint32_t> user;  // who comes to a loopback listener, if that can be told
  std::string name;                   // for people: "connection from 192.0.2.7"
};

// Says who may come in at a listener before any handshake is done, so that no refusal ends an
// established connection. An unfinished handshake counts as a connection as well: it may become
// one.
class Admission {
 public:
  explicit Admission(bool isLoopback) : isLoopback_(isLoopback) {}

  [[nodiscard]] Candidate candidateAt(const boost::asio::ip::tcp::socket &socket) const;

  // The limit for which this candidate can't come in, whatever handshakes end.
  [[nodiscard]] std::optional<platform::Limit> refuses(
      const Candidate &candidate, const platform::ListenerLimits &limits) const;

  // The limit for which this candidate can't come in as long as no handshake of its source ends.
  [[nodiscard]] std::optional<platform::Limit> limitOfSource(
      const Candidate &candidate, const platform::ListenerLimits &limits) const;

  // The limit for which nobody can come in as long as no handshake ends.
  [[nodiscard]] std::optional<platform::Limit> limitOfAll(
      const platform::ListenerLimits &limits) const;

  // The candidate's place among the unfinished handshakes, and among the connections.
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
