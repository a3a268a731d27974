#include "linux/network/TlsLink.hpp"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

namespace platform_linux {
namespace {

using boost::asio::ip::tcp;
using boost::system::error_code;
using crypto::TlsChannel;
using platform::ConnectionState;

// What one turn of the loop encrypts for one link.
constexpr std::size_t kOutputPerTurn = std::size_t{64} * 1024;

// How long a closing link waits for its output to leave, and then for its peer to end as well.
constexpr std::chrono::seconds kLongestFarewell{45};
constexpr std::chrono::seconds kLinger{2};

// The time of a handshake is counted in pieces of this length; a timer that fires so much too late
// tells that the loop was blocked.
constexpr std::chrono::milliseconds kPiece{500};

platform::Endpoint endpointOf(const tcp::socket &socket) {
  error_code failed;
  const tcp::endpoint remote = socket.remote_endpoint(failed);
  boost::asio::ip::address address = remote.address();
  if (address.is_v6() && address.to_v6().is_v4_mapped()) {
    address = boost::asio::ip::make_address_v4(boost::asio::ip::v4_mapped, address.to_v6());
  }
  return {address.to_string(), remote.port(), address.to_string()};
}

}  // namespace

TlsLink::TlsLink(AsioMainQueue &queue, tcp::socket socket, const crypto::TlsContext &context,
                 std::shared_ptr<CleansedBytes> buffer)
    : queue_(queue),
      socket_(std::move(socket)),
      peer_(endpointOf(socket_)),
      buffer_(std::move(buffer)),
      channel_(context, TlsChannel::Role::server, socket_.native_handle()),
      timer_(queue.context()) {}

// Turns. A link lives at least as long as a turn of its own waits.

void TlsLink::later(void (TlsLink::*turn)()) {
  queue_.post([self = shared_from_this(), turn] { (self.get()->*turn)(); });
}

void TlsLink::whenReadable(void (TlsLink::*turn)()) {
  socket_.async_wait(tcp::socket::wait_read,
                     [self = shared_from_this(), turn](const error_code &aborted) {
                       if (!aborted) {
                         (self.get()->*turn)();
                       }
                     });
}

void TlsLink::whenWritable(void (TlsLink::*turn)()) {
  socket_.async_wait(tcp::socket::wait_write,
                     [self = shared_from_this(), turn](const error_code &aborted) {
                       if (!aborted) {
                         (self.get()->*turn)();
                       }
                     });
}

void TlsLink::closeAfter(std::chrono::milliseconds time) {
  timer_.expires_after(time);
  timer_.async_wait([self = shared_from_this()](const error_code &aborted) {
    if (!aborted) {
      self->closeNow();
    }
  });
}

// The handshake.

void TlsLink::handshake(std::chrono::milliseconds time, Done done) {
  handshakeDone_ = std::move(done);
  countHandshakeTime(time);
  later(&TlsLink::handshakeTurn);
}

// Arms the timer of the handshake for the next piece of what is left of its time. While a step
// blocks the loop the peer's bytes may be waiting: such a time counts as one piece at most, and as
// none where the timer shows it.
void TlsLink::countHandshakeTime(std::chrono::milliseconds left) {
  if (left.count() <= 0) {
    return endHandshake(ETIMEDOUT);
  }
  const auto piece = std::min(left, kPiece);
  timer_.expires_after(piece);
  timer_.async_wait([self = shared_from_this(), left, piece](const error_code &aborted) {
    if (aborted || self->phase_ != Phase::handshaking) {
      return;
    }
    const bool wasBlocked = std::chrono::steady_clock::now() > self->timer_.expiry() + kPiece;
    self->countHandshakeTime(wasBlocked ? left : left - piece);
  });
}

void TlsLink::handshakeTurn() {
  if (phase_ != Phase::handshaking) {
    return;
  }
  switch (channel_.handshake()) {
    case TlsChannel::Result::done:
      return endHandshake(0);
    case TlsChannel::Result::wantsRead:
      return whenReadable(&TlsLink::handshakeTurn);
    case TlsChannel::Result::wantsWrite:
      return whenWritable(&TlsLink::handshakeTurn);
    case TlsChannel::Result::ended:
      return endHandshake(ECONNRESET);
    case TlsChannel::Result::failed:
      return endHandshake(channel_.errorNumber());
  }
}

void TlsLink::endHandshake(int errorNumber) {
  timer_.cancel();
  const Done done = std::exchange(handshakeDone_, nullptr);
  if (errorNumber == 0) {
    phase_ = Phase::open;
  } else {
    closeNow();
  }
  if (done) {
    done(errorNumber);
  }
}

void TlsLink::abandon() {
  handshakeDone_ = nullptr;
  closeNow();
}

// What others ask of a connection.

void TlsLink::setStateHandler(platform::Connection::StateHandler handler) {
  stateHandler_ = std::move(handler);
}

void TlsLink::start() {
  queue_.post([self = shared_from_this()] {
    if (self->phase_ != Phase::closed && self->stateHandler_) {
      self->stateHandler_(ConnectionState::ready, 0);
    }
  });
}

void TlsLink::receive(platform::Connection::ReceiveCompletion completion) {
  if (phase_ != Phase::open) {
    return;
  }
  receive_ = std::move(completion);
  scheduleRead();
}

void TlsLink::send(CleansedBytes unit, platform::Connection::SendCompletion completion) {
  if (phase_ == Phase::closed || hasSaidGoodbye_ || writeError_ != 0) {
    const int cause = writeError_ == 0 ? EPIPE : writeError_;
    queue_.post([completion = std::move(completion), cause] { completion(cause); });
    return;
  }
  units_.push_back(Unit{std::move(unit), 0, std::move(completion)});
  scheduleFlush();
}

void TlsLink::cancel() {
  if (phase_ != Phase::open && phase_ != Phase::peerEnded) {
    return;
  }
  queue_.post([self = shared_from_this()] {
    // Taken out first: nothing may follow, and the handler may hold what holds this link.
    const auto handler = std::exchange(self->stateHandler_, nullptr);
    if (handler) {
      handler(ConnectionState::cancelled, 0);
    }
  });
  beginClosing();
}

std::size_t TlsLink::unsentBytes() const {
  std::size_t bytes = channel_.unsentBytes();
  for (const Unit &unit : units_) {
    bytes += unit.bytes.size() - unit.encrypted;
  }
  return bytes;
}

void TlsLink::holds(std::size_t bytes) {
  held_ = bytes;
}

void TlsLink::rejected() {}

void TlsLink::release() {
  if (phase_ == Phase::open || phase_ == Phase::peerEnded) {
    stateHandler_ = nullptr;
    beginClosing();
  }
}

// Reading.

void TlsLink::scheduleRead() {
  if (!isReadScheduled_) {
    isReadScheduled_ = true;
    later(&TlsLink::readTurn);
  }
}

void TlsLink::readTurn() {
  isReadScheduled_ = false;
  if (phase_ != Phase::open || !receive_) {
    return;
  }
  ByteView chunk;
  const TlsChannel::Result result = channel_.readChunk(*buffer_, chunk);
  if (channel_.unsentBytes() != 0) {  // TLS had something of its own to answer
    scheduleFlush();
  }
  switch (result) {
    case TlsChannel::Result::done:
      return deliver(chunk);
    case TlsChannel::Result::wantsRead:
    case TlsChannel::Result::wantsWrite:
      isReadScheduled_ = true;
      return whenReadable(&TlsLink::readTurn);
    case TlsChannel::Result::ended:
      return writeError_ == 0 ? peerEnded() : lose(writeError_);
    case TlsChannel::Result::failed:
      return lose(channel_.errorNumber());
  }
}

void TlsLink::deliver(ByteView chunk) {
  const auto completion = std::exchange(receive_, nullptr);
  completion({chunk, /*isFinal=*/false, /*errorNumber=*/0});
  // The buffer is every link's: what stood in it may have been a PIN.
  base::cleanse(buffer_->data(), buffer_->size() < chunk.size() ? buffer_->size() : chunk.size());
}

void TlsLink::peerEnded() {
  phase_ = Phase::peerEnded;
  isPeerGone_ = true;
  const auto completion = std::exchange(receive_, nullptr);
  completion({{}, /*isFinal=*/true, /*errorNumber=*/0});
}

// Reports `failed`, completes what is outstanding, the receive last, and says nothing more.
void TlsLink::lose(int errorNumber) {
  const auto self = shared_from_this();
  const auto handler = std::exchange(stateHandler_, nullptr);
  const auto completion = std::exchange(receive_, nullptr);
  phase_ = Phase::closed;
  if (handler) {
    handler(ConnectionState::failed, errorNumber);
  }
  outputIsLost(errorNumber);
  closeNow();
  if (completion) {
    completion({{}, /*isFinal=*/true, errorNumber});
  }
}

// Writing.

void TlsLink::scheduleFlush() {
  if (!isFlushScheduled_) {
    isFlushScheduled_ = true;
    later(&TlsLink::flushTurn);
  }
}

void TlsLink::flushTurn() {
  isFlushScheduled_ = false;
  if (phase_ == Phase::closed || writeError_ != 0) {
    return;
  }
  if (!encryptUnits()) {
    return outputIsLost(channel_.errorNumber());
  }
  switch (channel_.flush()) {
    case TlsChannel::Result::done:
      return outputHasLeft();
    case TlsChannel::Result::wantsRead:
    case TlsChannel::Result::wantsWrite:
      isFlushScheduled_ = true;
      return whenWritable(&TlsLink::flushTurn);
    case TlsChannel::Result::ended:
    case TlsChannel::Result::failed:
      return outputIsLost(channel_.errorNumber());
  }
}

// One turn's share, from as many units as it holds, so that they leave in one send.
bool TlsLink::encryptUnits() {
  while (!units_.empty() && channel_.unsentBytes() < kOutputPerTurn) {
    Unit &unit = units_.front();
    const ByteView rest = ByteView(unit.bytes).subspan(unit.encrypted);
    const std::size_t taken = rest.empty() ? 0 : channel_.encryptRecord(rest);
    if (taken == 0 && !rest.empty()) {
      return false;
    }
    unit.encrypted += taken;
    if (unit.encrypted == unit.bytes.size()) {
      leaving_.push_back(std::move(unit.completion));
      units_.pop_front();
    }
  }
  return true;
}

void TlsLink::outputHasLeft() {
  for (const auto &completion : std::exchange(leaving_, {})) {
    completion(0);
  }
  if (!units_.empty()) {
    return scheduleFlush();
  }
  if (phase_ == Phase::closing) {
    sayGoodbye();
  }
}

// Nothing can be sent any more. What the peer had sent before it went is still read; the end of its
// stream then reports this error.
void TlsLink::outputIsLost(int errorNumber) {
  writeError_ = errorNumber;
  const auto self = shared_from_this();
  for (const auto &completion : std::exchange(leaving_, {})) {
    completion(errorNumber);
  }
  for (const Unit &unit : std::exchange(units_, {})) {
    unit.completion(errorNumber);
  }
  if (phase_ == Phase::closing) {
    closeNow();
  } else if (phase_ == Phase::open) {
    scheduleRead();
  }
}

// Closing: what was sent before still leaves, then close_notify, then the write side is shut and
// what comes in is discarded until the peer ends too. Closing at once would reset the connection
// and take the last frames with it wherever bytes of the peer are unread.

void TlsLink::beginClosing() {
  phase_ = Phase::closing;
  receive_ = nullptr;
  if (writeError_ != 0) {  // nothing can leave any more, so there is nothing to wait for
    return closeNow();
  }
  closeAfter(kLongestFarewell);
  scheduleFlush();
  if (!isPeerGone_) {
    later(&TlsLink::discardTurn);
  }
}

void TlsLink::sayGoodbye() {
  if (!hasSaidGoodbye_) {
    hasSaidGoodbye_ = true;
    channel_.sayGoodbye();
    return scheduleFlush();
  }
  error_code ignored;
  socket_.shutdown(tcp::socket::shutdown_send, ignored);
  if (isPeerGone_) {
    return closeNow();
  }
  closeAfter(kLinger);
}

void TlsLink::discardTurn() {
  if (phase_ != Phase::closing) {
    return;
  }
  std::array<char, 16384> discarded;
  const ssize_t got =
      ::recv(socket_.native_handle(), discarded.data(), discarded.size(), MSG_DONTWAIT);
  if (got > 0) {
    return later(&TlsLink::discardTurn);
  }
  if (got < 0 && (errno == EAGAIN || errno == EINTR)) {
    return whenReadable(&TlsLink::discardTurn);
  }
  isPeerGone_ = true;
  if (got < 0 || hasSaidGoodbye_) {
    closeNow();
  }
}

void TlsLink::closeNow() {
  phase_ = Phase::closed;
  timer_.cancel();
  error_code ignored;
  socket_.close(ignored);
  if (writeError_ == 0) {
    outputIsLost(ECANCELED);
  }
}

}  // namespace platform_linux
