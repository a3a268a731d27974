#include "linux/network/UnauthenticatedTurns.hpp"

#include <algorithm>
#include <utility>

#include "linux/network/TlsLink.hpp"

namespace platform_linux {
namespace {

using std::chrono::steady_clock;

// A shorter rest is added to the next: a timer for each short message would cost more than it
// saves.
constexpr std::chrono::microseconds kShortestRest{250};

// Looking up the pairing may block the loop for half a minute. A rest of that length would make a
// legitimate device miss its deadline.
constexpr std::chrono::seconds kLongestRest{1};

}  // namespace

void UnauthenticatedTurns::add(std::weak_ptr<TlsLink> link) {
  waiting_.push_back(std::move(link));
  schedule();
}

void UnauthenticatedTurns::charge(steady_clock::duration time) {
  const auto now = steady_clock::now();
  const auto owedBefore = std::max(restsUntil_ - (now - time), steady_clock::duration::zero());
  restsUntil_ = now + std::min<steady_clock::duration>(owedBefore + time, kLongestRest);
}

void UnauthenticatedTurns::schedule() {
  if (isScheduled_ || waiting_.empty()) {
    return;
  }
  if (restsUntil_ <= steady_clock::now() + kShortestRest) {
    queue_.post([self = shared_from_this()] { self->turn(); });
  } else {
    timer_.expires_at(restsUntil_);
    timer_.async_wait([self = shared_from_this()](
                          const boost::system::error_code & /*never cancelled*/) { self->turn(); });
  }
  isScheduled_ = true;
}

void UnauthenticatedTurns::turn() {
  isScheduled_ = false;
  while (!waiting_.empty()) {
    const auto link = waiting_.front().lock();
    waiting_.pop_front();
    if (link) {
      link->readInTurn();
      break;
    }
  }
  schedule();
}

}  // namespace platform_linux
