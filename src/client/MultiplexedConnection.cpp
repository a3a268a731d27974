#include "client/MultiplexedConnection.hpp"

#include <algorithm>
#include <utility>

namespace client {
namespace {

constexpr std::chrono::seconds kEarlyFailure{1};

}  // namespace

MultiplexedConnection::Waiter::Waiter(MultiplexedConnection &link, const UUID &messageID)
    : link_(link), messageID_(messageID) {
  link_.waiters_.insert_or_assign(messageID_, this);
}

MultiplexedConnection::Waiter::~Waiter() {
  const auto found = link_.waiters_.find(messageID_);
  if (found != link_.waiters_.end() && found->second == this) {
    link_.waiters_.erase(found);
  }
  link_.handOverPolling();
}

MultiplexedConnection::MultiplexedConnection(std::unique_ptr<Connection> connection,
                                             OpenDescriptors &descriptors)
    : connection_(std::move(connection)), entry_(descriptors, connection_->descriptor()) {}

bool MultiplexedConnection::readPending() {
  if (polling_ == 0) {
    pump();
  }
  return !end();
}

bool MultiplexedConnection::send(const QuillMessage &message, Error *error) {
  return connection_->send(message, error);
}

void MultiplexedConnection::wait(Lock &lock, Waiter &waiter, Deadline time) {
  if (isPolledForAll()) {
    waiter.isSleeping_ = true;
    waiter.wake_.wait_until(lock, time);
    waiter.isSleeping_ = false;
  } else {
    poll(lock, time);
    pump();
  }
}

// A thread that started to poll before there was output does not poll for writability; then a
// second thread polls beside it.
bool MultiplexedConnection::isPolledForAll() const {
  return polling_ > 0 && (pollingToWrite_ > 0 || !connection_->wantsWrite());
}

void MultiplexedConnection::poll(Lock &lock, Deadline time) {
  if (connection_->hasMore()) {
    return;
  }
  const int descriptor = connection_->descriptor();
  const bool toWrite = connection_->wantsWrite();
  const int writers = toWrite ? 1 : 0;
  ++polling_;
  pollingToWrite_ += writers;
  {
    const ReverseLock reverseLock(lock);
    // the caller detects a timeout or failure afterwards
    (void)waitFor(descriptor, toWrite, WaitLimits{time, /*stopDescriptor=*/-1});
  }
  --polling_;
  pollingToWrite_ -= writers;
}

void MultiplexedConnection::pump() {
  const bool isAtEnd = !connection_->pump();
  while (auto message = connection_->take()) {
    const auto found = message->messageType == QuillMessageTypeResponse && message->messageID
                           ? waiters_.find(*message->messageID)
                           : waiters_.end();
    if (found != waiters_.end()) {
      Waiter &waiter = *found->second;
      waiters_.erase(found);
      waiter.answer = std::move(message);
      waiter.wake_.notify_one();
      hasAnswered_ = true;
    }
  }
  if (isAtEnd) {
    std::ranges::for_each(waiters_, [](const auto &entry) { entry.second->wake_.notify_one(); });
  }
}

void MultiplexedConnection::handOverPolling() {
  const auto sleeping =
      std::ranges::find_if(waiters_, [](const auto &entry) { return entry.second->isSleeping_; });
  if (!isPolledForAll() && sleeping != waiters_.end()) {
    sleeping->second->wake_.notify_one();
  }
}

bool MultiplexedConnection::failedEarly() const {
  return !hasAnswered_ && std::chrono::steady_clock::now() - openedAt_ < kEarlyFailure;
}

}  // namespace client
