#include "linux/network/TlsHandshake.hpp"

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

namespace platform_linux {
namespace {

using boost::asio::ip::tcp;
using boost::system::error_code;
using crypto::TlsChannel;
using std::chrono::duration_cast;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

// Time is counted in pieces of this length. A timer that fires a whole piece late shows that the
// loop was blocked.
constexpr milliseconds kPiece{500};

}  // namespace

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

TlsHandshake::TlsHandshake(AsioMainQueue &queue, std::shared_ptr<HandshakeTurns> turns,
                           tcp::socket socket, const crypto::TlsContext &context,
                           platform::Endpoint peer, Place place)
    : turns_(std::move(turns)),
      stream_{std::move(socket), std::move(peer), std::move(place), nullptr},
      timer_(queue.context()) {
  stream_.channel = std::make_unique<TlsChannel>(context, TlsChannel::Role::server,
                                                 stream_.socket.native_handle());
}

void TlsHandshake::begin(milliseconds time, Done done) {
  time_ = time;
  done_ = std::move(done);
  countPiece();
  turns_->add(shared_from_this());
}

void TlsHandshake::abandon() {
  done_ = nullptr;
  timer_.cancel();
  stream_.close();
}

milliseconds TlsHandshake::age() const {
  const auto piece = duration_cast<milliseconds>(steady_clock::now() - pieceBegan_);
  return counted_ + std::min(piece, kPiece);
}

TlsStream TlsHandshake::takeStream() {
  error_code ignored;
  stream_.socket.cancel(ignored);  // a wait that is left would use a socket that has moved
  return std::move(stream_);
}

void TlsHandshake::stepWhen(Wait ready) {
  stream_.socket.async_wait(ready, [self = shared_from_this()](const error_code &aborted) {
    if (!aborted) {
      self->runOrEnd(&TlsHandshake::awaitTurn);
    }
  });
}

void TlsHandshake::countPiece() {
  pieceBegan_ = steady_clock::now();
  timer_.expires_after(std::min(time_ - counted_, kPiece));
  timer_.async_wait([self = shared_from_this()](const error_code &aborted) {
    if (!aborted) {
      self->runOrEnd(&TlsHandshake::endPiece);
    }
  });
}

// The peer's bytes may be waiting while something blocks the loop. Such a time counts as one piece
// at most, and not at all if the timer shows it.
void TlsHandshake::endPiece() {
  const bool wasBlocked = steady_clock::now() > timer_.expiry() + kPiece;
  if (!wasBlocked) {
    counted_ += std::min(time_ - counted_, kPiece);
  }
  if (counted_ < time_) {
    return countPiece();
  }
  awaitTurn();  // one last step: the peer's bytes may have arrived meanwhile
}

void TlsHandshake::awaitTurn() {
  turns_->add(shared_from_this());
}

void TlsHandshake::step() {
  runOrEnd(&TlsHandshake::goOn);
}

void TlsHandshake::runOrEnd(void (TlsHandshake::*part)()) {
  if (!done_) {
    return;
  }
  try {
    (this->*part)();
  } catch (const std::bad_alloc &) {
    if (done_) {  // otherwise the handshake is finished and has been handed over
      end(ENOMEM);
    }
  }
}

void TlsHandshake::goOn() {
  const TlsChannel::Result result = stream_.channel->handshake();
  switch (result) {
    case TlsChannel::Result::done:
      return end(0);
    case TlsChannel::Result::wantsRead:
    case TlsChannel::Result::wantsWrite:
      if (counted_ >= time_) {
        return end(ETIMEDOUT);
      }
      return stepWhen(result == TlsChannel::Result::wantsRead ? Wait::wait_read : Wait::wait_write);
    case TlsChannel::Result::ended:
      return end(ECONNRESET);
    case TlsChannel::Result::failed:
      return end(stream_.channel->errorNumber());
  }
}

void TlsHandshake::end(int errorNumber) {
  timer_.cancel();
  if (errorNumber != 0) {
    stream_.close();
  } else {
    stream_.channel->releaseBuffers();  // many connections do nothing for a long time
  }
  const Done done = std::exchange(done_, nullptr);
  done(errorNumber);
}

}  // namespace platform_linux
