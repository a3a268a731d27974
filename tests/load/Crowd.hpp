#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <thread>
#include <vector>

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
  bool shakesHands = true;  // otherwise the pieces are sent in the clear, and it stays
};

// Many clients in one thread. Each has a loopback address of its own, so that no bound per address
// keeps them out. Gone, with all connections, with the object.
class Crowd {
 public:
  Crowd(std::uint16_t port, std::vector<Behaviour> members);
  ~Crowd();
  Crowd(const Crowd &) = delete;
  Crowd &operator=(const Crowd &) = delete;

  // Handshakes and ends of its members so far, and pieces that they have said.
  [[nodiscard]] std::size_t established() const { return established_; }
  [[nodiscard]] std::size_t ended() const { return ended_; }
  [[nodiscard]] std::size_t said() const { return said_; }

 private:
  struct Member;
  using Result = crypto::TlsChannel::Result;

  void run();
  void dial(Member &member);
  [[nodiscard]] Result step(Member &member);
  [[nodiscard]] Result say(Member &member);

  std::uint16_t port_;
  crypto::TlsContext context_ = crypto::TlsContext::client().value();
  std::vector<Member> members_;
  std::atomic<std::size_t> established_ = 0;
  std::atomic<std::size_t> ended_ = 0;
  std::atomic<std::size_t> said_ = 0;
  std::atomic<bool> isOver_ = false;
  std::thread thread_;
};

}  // namespace load
