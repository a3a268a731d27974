#include <sys/socket.h>

#include <array>
#include <cerrno>

#include "linux/network/TlsLink.hpp"

// How a link closes: what was sent before still leaves, then close_notify, then the write side is
// shut and what comes in is discarded until the peer ends too. Closing at once would reset the
// connection and take the last frames with it wherever bytes of the peer are unread.
namespace platform_linux {
namespace {

// How long a peer may take to end as well when all has left.
constexpr std::chrono::seconds kLinger{2};

}  // namespace

void TlsLink::beginClosing() {
  phase_ = Phase::closing;
  receive_ = nullptr;
  account_.holds(0, 0);
  if (writeError_ != 0) {  // nothing can leave any more, so there is nothing to wait for
    return closeNow();
  }
  scheduleFlush();
  if (!isPeerGone_) {
    later(&TlsLink::discardTurn);
  }
}

void TlsLink::sayGoodbye() {
  if (!hasSaidGoodbye_) {
    hasSaidGoodbye_ = true;
    stream_.channel->sayGoodbye();
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
  if (got < 0 || hasSaidGoodbye_) {
    closeNow();
  }
}

void TlsLink::closeNow() {
  phase_ = Phase::closed;
  timer_.cancel();
  stream_.close();
  account_.close();
  if (writeError_ == 0) {
    writeError_ = ECANCELED;
  }
  output_.lose(writeError_);
}

}  // namespace platform_linux
