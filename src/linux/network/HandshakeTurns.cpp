#include "linux/network/HandshakeTurns.hpp"

#include "linux/network/TlsHandshake.hpp"

namespace platform_linux {
namespace {

constexpr int kStepsPerTurn = 2;

}  // namespace

void HandshakeTurns::add(const std::shared_ptr<TlsHandshake> &handshake) {
  waiting_.push_back(handshake);
  if (waiting_.size() == 1) {
    post();
  }
}

void HandshakeTurns::post() {
  queue_.post([self = shared_from_this()] { self->turn(); });
}

void HandshakeTurns::turn() {
  for (int step = 0; step < kStepsPerTurn && !waiting_.empty();) {
    // Taken out afterwards: whoever is added meanwhile finds a turn that is posted already.
    if (const auto handshake = waiting_.front().lock()) {
      handshake->step();
      ++step;
    }
    waiting_.pop_front();
  }
  if (!waiting_.empty()) {
    post();
  }
}

}  // namespace platform_linux
