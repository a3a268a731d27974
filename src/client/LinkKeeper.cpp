#include "client/LinkKeeper.hpp"

#include <algorithm>
#include <utility>

namespace client {

void LinkKeeper::keep(std::unique_ptr<Connection> connection) {
  current_ = std::make_shared<SharedLink>(std::move(connection), descriptors_);
}

void LinkKeeper::retire(const std::shared_ptr<SharedLink> &link) {
  if (current_ == link) {
    if (!link->wasInVain()) {
      trouble_.reset();
    }
    current_ = nullptr;
  }
}

void LinkKeeper::noteLoss(const std::shared_ptr<SharedLink> &link, Deadline callBegan) {
  // A server that hangs up at once is no better than none. Counted once, not by each waiter, and
  // not against a call that found the connection as it was.
  if (current_ == link && link->wasInVain() && link->openedAt() >= callBegan) {
    noteFailure(link->end().value_or(Error()));
  }
  retire(link);
}

void LinkKeeper::noteFailure(Error reason) {
  const auto now = std::chrono::steady_clock::now();
  trouble_ = Trouble{std::move(reason), trouble_ ? trouble_->since : now, now};
  nextAttempt_ = now + pauses_.next();
}

void LinkKeeper::noteAnswer() {
  trouble_.reset();
  pauses_.reset();
}

std::optional<Error> LinkKeeper::whyHopeless(Deadline callBegan,
                                             std::chrono::milliseconds limit) const {
  const bool isHopeless = trouble_ && trouble_->latest >= callBegan &&
                          trouble_->latest - std::max(callBegan, trouble_->since) >= limit;
  return isHopeless ? std::optional(trouble_->reason) : std::nullopt;
}

}  // namespace client
