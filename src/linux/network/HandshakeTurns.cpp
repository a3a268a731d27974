#include "linux/network/HandshakeTurns.hpp"

#include "linux/network/TlsHandshake.hpp"

namespace platform_linux {

void HandshakeTurns::add(const std::shared_ptr<TlsHandshake> &handshake) {
  waiting_.push_back(handshake);
  if (!isPosted_) {
    post();
  }
}

void HandshakeTurns::post() {
  queue_.post([self = shared_from_this()] { self->turn(); });
  isPosted_ = true;
}

void HandshakeTurns::turn() {
  isPosted_ = false;
  while (!waiting_.empty()) {
    const auto handshake = waiting_.front().lock();
    waiting_.pop_front();
    if (handshake) {
      handshake->step();
      break;
    }
  }
  if (!waiting_.empty() && !isPosted_) {
    post();
  }
}

}  // namespace platform_linux
