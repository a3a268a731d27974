#include "linux/network/TlsLink.hpp"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <new>
#include <utility>

namespace platform_linux {
namespace {

using boost::system::error_code;
using crypto::TlsChannel;
using platform::ConnectionState;

// Nothing is read from a peer while more than this waits to be sent to it.
constexpr std::size_t kMostUnsentWhileReading = std::size_t{256} << 10;

constexpr std::chrono::milliseconds kPauseAfterRejections{100};

// So long after a send a link counts as busy: longer than an event, shorter than an answer takes.
constexpr std::chrono::microseconds kBusyTime{20};

// How long a peer may take to end its side after all output has left.
constexpr std::chrono::seconds kLinger{2};

}  // namespace

TlsLink::TlsLink(std::shared_ptr<NetworkResources> resources, TlsStream stream)
    : resources_(std::move(resources)),
      stream_(std::move(stream)),
      output_(*stream_.channel),
      account_(resources_->quota, "connection from " + stream_.peer.host,
               [this](int errorNumber) { evict(errorNumber); }),
      timer_(resources_->queue.context()) {}

// Turns. A waiting turn keeps its link alive.

void TlsLink::later(void (TlsLink::*turn)()) {
  resources_->queue.post([self = shared_from_this(), turn] { self->take(turn); });
}

void TlsLink::turnWhen(Wait ready, void (TlsLink::*turn)()) {
  stream_.socket.async_wait(ready, [self = shared_from_this(), turn](const error_code &aborted) {
    if (!aborted) {
      self->take(turn);
    }
  });
}

void TlsLink::turnAfter(std::chrono::milliseconds time, void (TlsLink::*turn)()) {
  timer_.expires_after(time);
  timer_.async_wait([self = shared_from_this(), turn](const error_code &aborted) {
    if (!aborted) {
      self->take(turn);
    }
  });
}

void TlsLink::take(void (TlsLink::*turn)()) {
  const bool isCharged = !isAuthenticated_;
  const auto began =
      isCharged ? std::chrono::steady_clock::now() : std::chrono::steady_clock::time_point();
  try {
    (this->*turn)();
  } catch (const std::bad_alloc &) {
    lose(ENOMEM);
  }
  if (isCharged) {
    resources_->unauthenticated->charge(std::chrono::steady_clock::now() - began);
  }
}

// The operations of platform::Connection.

void TlsLink::setStateHandler(platform::Connection::StateHandler handler) {
  stateHandler_ = std::move(handler);
}

void TlsLink::start() {
  later(&TlsLink::beginTurn);
}

void TlsLink::receive(platform::Connection::ReceiveCompletion completion) {
  if (phase_ != Phase::open) {
    return;
  }
  receive_ = std::move(completion);
  scheduleRead();
}

void TlsLink::send(CleansedBytes unit, platform::Connection::SendCompletion completion) {
  if (phase_ == Phase::closed || hasSentCloseNotify_ || writeError_ != 0) {
    const int cause = writeError_ == 0 ? EPIPE : writeError_;
    resources_->queue.post([completion = std::move(completion), cause] { completion(cause); });
    return;
  }
  output_.add(std::move(unit), std::move(completion));
  account_.setUnsentBytes(output_.bytes());
  scheduleFlush();
}

void TlsLink::cancel() {
  if (phase_ != Phase::open && phase_ != Phase::peerEnded) {
    return;
  }
  resources_->queue.post([self = shared_from_this()] {
    // Removed first: nothing may be reported after it, and the handler may own this link.
    const auto handler = std::exchange(self->stateHandler_, nullptr);
    if (handler) {
      handler(ConnectionState::cancelled, 0);
    }
  });
  beginClosing();
}

void TlsLink::countRejection() {
  if (phase_ == Phase::open && garbage_.add(std::chrono::steady_clock::now())) {
    isReadingPaused_ = true;
    turnAfter(kPauseAfterRejections, &TlsLink::readAgain);
  }
}

void TlsLink::release() {
  if (phase_ == Phase::open || phase_ == Phase::peerEnded) {
    stateHandler_ = nullptr;
    try {
      beginClosing();
    } catch (const std::bad_alloc &) {  // the output can't be sent
      closeNow();
    }
  }
}

// Reading.

void TlsLink::beginTurn() {
  isStarted_ = true;
  if (phase_ != Phase::closed && stateHandler_) {
    stateHandler_(ConnectionState::ready, 0);
  }
  scheduleRead();
}

bool TlsLink::mayRead() const {
  return phase_ == Phase::open && isStarted_ && receive_ && !isReadingPaused_ &&
         output_.bytes() <= kMostUnsentWhileReading;
}

void TlsLink::scheduleRead() {
  if (isReadScheduled_ || !mayRead()) {
    return;
  }
  isReadScheduled_ = true;
  if (stream_.channel->mayHoldMore() || writeError_ != 0) {
    later(&TlsLink::readTurn);
  } else {
    turnWhen(Wait::wait_read, &TlsLink::readTurn);
  }
}

void TlsLink::readTurn() {
  if (isAuthenticated_ || !mayRead()) {
    return read();
  }
  resources_->unauthenticated->add(weak_from_this());
}

void TlsLink::read() {
  isReadScheduled_ = false;
  if (!mayRead()) {  // whatever lifts the hindrance schedules a read
    return;
  }
  watchWhileBusy();
  ByteView chunk;
  const TlsChannel::Result result = stream_.channel->readChunk(resources_->buffer, chunk);
  if (stream_.channel->unsentBytes() != 0) {  // TLS has an answer of its own to send
    scheduleFlush();
  }
  switch (result) {
    case TlsChannel::Result::done:
      return deliver(chunk);
    case TlsChannel::Result::wantsRead:
    case TlsChannel::Result::wantsWrite:
      if (writeError_ != 0) {  // all that had arrived has been read
        return lose(writeError_);
      }
      isReadScheduled_ = true;
      return turnWhen(Wait::wait_read, &TlsLink::readTurn);
    case TlsChannel::Result::ended:
      return writeError_ == 0 ? peerEnded() : lose(writeError_);
    case TlsChannel::Result::failed:
      return lose(stream_.channel->errorNumber());
  }
}

void TlsLink::readAgain() {
  isReadingPaused_ = false;
  scheduleRead();
}

void TlsLink::deliver(ByteView chunk) {
  auto completion = std::exchange(receive_, nullptr);
  // All links share the buffer, and the chunk may have held a PIN.
  const auto cleanse = [this, size = std::min(resources_->buffer.size(), chunk.size())] {
    base::cleanse(resources_->buffer.data(), size);
  };
  try {
    completion({chunk, /*isFinal=*/false, /*errorNumber=*/0});
  } catch (const std::bad_alloc &) {
    cleanse();
    if (!receive_) {  // it still has to hear of the end
      receive_ = std::move(completion);
    }
    throw;
  }
  cleanse();
}

void TlsLink::peerEnded() {
  phase_ = Phase::peerEnded;
  isPeerGone_ = true;
  const auto completion = std::exchange(receive_, nullptr);
  completion({{}, /*isFinal=*/true, /*errorNumber=*/0});
}

// Writing.

// A link that was quiet sends at once. One that has just sent waits for the turn of the loop to
// end, so that what other events add leaves in the same system call.
void TlsLink::scheduleFlush() {
  if (isFlushScheduled_) {
    return;
  }
  if (std::chrono::steady_clock::now() - flushedAt_ < kBusyTime) {
    later(&TlsLink::flushTurn);
  } else {
    resources_->queue.postAtEnd([self = shared_from_this()] { self->take(&TlsLink::flushTurn); });
  }
  isFlushScheduled_ = true;
}

void TlsLink::flushTurn() {
  isFlushScheduled_ = false;
  if (phase_ == Phase::closed || writeError_ != 0) {
    return;
  }
  watchWhileBusy();
  const TlsChannel::Result result = output_.turn();
  flushedAt_ = std::chrono::steady_clock::now();
  account_.setUnsentBytes(output_.bytes());
  switch (result) {
    case TlsChannel::Result::done:
      finishFlush();
      break;
    case TlsChannel::Result::wantsRead:
    case TlsChannel::Result::wantsWrite:
      isFlushScheduled_ = true;
      turnWhen(Wait::wait_write, &TlsLink::flushTurn);
      break;
    case TlsChannel::Result::ended:
    case TlsChannel::Result::failed:
      return loseOutput(stream_.channel->errorNumber());
  }
  scheduleRead();  // in case reading had stopped because too much waited
}

void TlsLink::finishFlush() {
  if (!output_.empty()) {
    return scheduleFlush();
  }
  if (phase_ == Phase::closing) {
    sendCloseNotify();
  }
}

std::optional<std::chrono::steady_clock::duration> TlsLink::checkAcknowledgements() {
  if (phase_ == Phase::closed) {
    return std::nullopt;
  }
  const auto missing = acknowledgements_.missingFor(
      stream_.socket.native_handle(), output_.bytes() != 0, std::chrono::steady_clock::now());
  isWatched_ = missing.has_value();
  if (!isWatched_) {
    stream_.channel->releaseBuffers();
  }
  return missing;
}

void TlsLink::watchWhileBusy() {
  if (!std::exchange(isWatched_, true)) {
    resources_->stalls->watch(weak_from_this());
  }
}

// Losing.

// Nothing can be sent any more. What the peer sent before it went is still read; the end of its
// stream then reports this error.
void TlsLink::loseOutput(int errorNumber) {
  writeError_ = errorNumber;
  output_.lose(errorNumber);
  account_.setUnsentBytes(0);
  if (phase_ == Phase::closing) {
    closeNow();
  } else {
    scheduleRead();
  }
}

// This link holds too much. The owner may be inside send(), so it is told on a later event.
void TlsLink::evict(int errorNumber) {
  resources_->queue.post([self = shared_from_this(), errorNumber] { self->lose(errorNumber); });
  writeError_ = errorNumber;
}

void TlsLink::lose(int errorNumber) {
  const auto self = shared_from_this();
  if (phase_ != Phase::open) {  // the owner already knows that it has ended
    return closeNow();
  }
  const auto handler = std::exchange(stateHandler_, nullptr);
  const auto completion = std::exchange(receive_, nullptr);
  writeError_ = errorNumber;
  phase_ = Phase::closed;
  try {
    if (handler) {
      handler(ConnectionState::failed, errorNumber);
    }
  } catch (const std::bad_alloc &) {  // the receive still has to report the end
    errorNumber = ENOMEM;
  }
  closeNow();
  if (completion) {
    completion({{}, /*isFinal=*/true, errorNumber});
  }
}

// Closing. What was sent before still leaves, then close_notify, then the write side is shut and
// what comes in is discarded until the peer ends too. Closing at once would reset the connection
// and take the last frames with it wherever bytes of the peer are unread.

void TlsLink::beginClosing() {
  phase_ = Phase::closing;
  receive_ = nullptr;
  account_.setHeldBytes(0, 0);
  if (writeError_ != 0) {  // nothing can be sent any more, so there is nothing to wait for
    return closeNow();
  }
  scheduleFlush();
  if (!isPeerGone_) {
    later(&TlsLink::discardTurn);
  }
}

void TlsLink::sendCloseNotify() {
  if (!hasSentCloseNotify_) {
    hasSentCloseNotify_ = true;
    stream_.channel->sendCloseNotify();
    return scheduleFlush();
  }
  boost::system::error_code ignored;
  stream_.socket.shutdown(boost::asio::ip::tcp::socket::shutdown_send, ignored);
  if (isPeerGone_) {
    return closeNow();
  }
  turnAfter(kLinger, &TlsLink::closeNow);
}

void TlsLink::discardTurn() {
  if (phase_ != Phase::closing) {
    return;
  }
  std::array<char, 16384> discarded;
  const ssize_t got =
      ::recv(stream_.socket.native_handle(), discarded.data(), discarded.size(), MSG_DONTWAIT);
  if (got > 0) {
    return later(&TlsLink::discardTurn);
  }
  if (got < 0 && (errno == EAGAIN || errno == EINTR)) {
    return turnWhen(Wait::wait_read, &TlsLink::discardTurn);
  }
  isPeerGone_ = true;
  if (got < 0 || hasSentCloseNotify_) {
    closeNow();
  }
}

void TlsLink::closeNow() {
  phase_ = Phase::closed;
  timer_.cancel();
  stream_.close();
  account_.close();
  writeError_ = writeError_ == 0 ? ECANCELED : writeError_;
  output_.lose(writeError_);
}

}  // namespace platform_linux
