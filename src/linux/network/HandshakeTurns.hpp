#pragma once

#include <deque>
#include <memory>

#include "linux/network/AsioMainQueue.hpp"

namespace platform_linux {

class TlsHandshake;

// Gives the handshakes of one listener that can go on their steps, in the order in which they ask.
// A step costs a signature, many times a relay: all of them together have one per turn of the loop.
// The two listeners have turns of their own, so that a crowd at one keeps nobody waiting at the
// other.
class HandshakeTurns : public std::enable_shared_from_this<HandshakeTurns> {
 public:
  explicit HandshakeTurns(AsioMainQueue &queue) : queue_(queue) {}

  void add(const std::shared_ptr<TlsHandshake> &handshake);

 private:
  void post();
  void turn();

  AsioMainQueue &queue_;
  std::deque<std::weak_ptr<TlsHandshake>> waiting_;
  bool isPosted_ = false;
};

}  // namespace platform_linux
