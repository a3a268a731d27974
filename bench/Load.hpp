#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <unordered_map>
#include <vector>

#include "Child.hpp"
#include "Peer.hpp"
#include "Statistics.hpp"
#include "base/Descriptor.hpp"
#include "crypto/Identity.hpp"

namespace bench {

// What one round has shown; times are in microseconds.
struct Round {
  double p50 = 0;
  double p99 = 0;
  double perSecond = 0;
  double processor = 0;  // of the relay, for each request
};

// A relay's clients and the one holder that answers them all at once, in this thread. The frames
// are as long as those of a signature with RSA-2048, and made beforehand.
class Load {
 public:
  // Connects the holder, who inserts the card if `inserts`, then the clients.
  Load(const crypto::TlsContext &context, const Child &relay, std::uint16_t holderPort,
       std::uint16_t clientPort, std::size_t clients, const crypto::Identity &card, bool inserts);

  // The first `clients` of them send `requests` together; each sends its next request when its
  // answer has come.
  [[nodiscard]] Round run(std::size_t clients, std::size_t requests);

 private:
  struct Client {
    Client(const crypto::TlsContext &context, std::uint16_t port) : peer(context, port) {}

    Peer peer;
    CleansedBytes request;
    CleansedBytes answer;
    Clock::time_point sent;
  };

  void watch(const Peer &peer, std::uint32_t number) const;
  void begin(Client &client);
  void handle(std::uint32_t number, std::size_t requests);
  void answer(ByteView request);

  const Child &relay_;
  Peer holder_;
  std::deque<Client> clients_;
  std::unordered_map<std::string, Client *> clientOf_;  // by message ID
  base::Descriptor waiting_;
  std::size_t started_ = 0;
  std::vector<double> times_;
};

}  // namespace bench
