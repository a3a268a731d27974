#pragma once

#include <poll.h>

#include <atomic>
#include <thread>

#include "base/Bytes.hpp"
#include "base/Descriptor.hpp"
#include "crypto/TlsChannel.hpp"

namespace load {

// What a member of a crowd does with its connection.
struct Behaviour {
  std::vector<Bytes> says;  // each piece in TLS records of its own
  // As fast as it can, again and again, reading nothing, and coming back when it is thrown out.
  // Otherwise it reads, and says goodbye after its last piece; who has nothing to say stays.
  bool isEndless = false;
  bool readsAnswers = false;  // although it is endless: it then says one piece for each answer
  bool shakesHands = true;    // otherwise the pieces are sent in the clear, and it stays
};

// Many clients of one user in one thread. Each has a loopback address of its own, so that no bound
// per address keeps them out. Gone, with all connections, with the object.
class Crowd {
 public:
  Crowd(std::uint16_t port, std::vector<Behaviour> members, uid_t user = 0);

  // Handshakes and ends of its members so far, and pieces that they have said.
  std::atomic<std::size_t> established = 0;
  std::atomic<std::size_t> ended = 0;
  std::atomic<std::size_t> said = 0;

 private:
  struct Member {
    Behaviour behaviour;
    std::uint32_t host;
    base::Descriptor socket{};
    std::unique_ptr<crypto::TlsChannel> channel{};
    short awaited = POLLOUT;
    bool isEstablished = false;
    bool isAnswered = true;
    std::size_t next = 0;  // piece
  };
  using Result = crypto::TlsChannel::Result;

  void run(const std::stop_token &stop);
  void dial(Member &member);
  [[nodiscard]] Result step(Member &member);
  [[nodiscard]] Result say(Member &member);

  std::uint16_t port_;
  uid_t user_;
  crypto::TlsContext context_ = crypto::TlsContext::client().value();
  std::vector<Member> members_;
  std::jthread thread_;
};

}  // namespace load
