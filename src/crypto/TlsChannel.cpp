#include "crypto/TlsChannel.hpp"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <new>
#include <system_error>
#include <utility>

#include "crypto/Library.hpp"
#include "crypto/Owned.hpp"
#include "crypto/TlsTransport.hpp"

namespace crypto {
namespace {

// A record that is no longer than this and follows a full one belongs to the same chunk.
constexpr std::size_t kTailBytes = 8;

// What one call may take from the socket: a chain of certificates is at most 100 KiB, and
// afterwards a record with its overhead, behind the buffer's fill of what is none of the
// application's. Whoever needs more sends nothing but key updates and the like, which would hold
// the caller's loop for as long as they come.
constexpr std::size_t kReceivedPerStep = std::size_t{128} * 1024;
constexpr std::size_t kReceivedPerRead = std::size_t{36} * 1024;

// Key updates that may come before one record of the application: keys last for millions of
// records, and each update costs as much as many of these.
constexpr int kMostKeyUpdates = 32;

}  // namespace

struct TlsChannel::State {
  explicit State(int socket) : transport(socket) {}

  TlsTransport transport;
  Owned<SSL, SSL_free> ssl;  // goes before the transport that it is attached to
  bool readFailed = false;   // kept apart: what came in before a failed send can still be read
  bool writeFailed = false;
  int errorNumber = 0;
  std::string errorText;

  // Before each call of the library: nothing of another connection may show on this one.
  void begin(std::size_t mayReceive = 0) {
    if (ERR_peek_error() != 0) {  // seldom; clearing what is clear takes four times as long
      ERR_clear_error();
    }
    transport.mayReceive = mayReceive;
  }

  Result fail(bool &side, int number, std::string text) {
    side = true;
    if (errorNumber == 0) {
      errorNumber = number;
      errorText = std::move(text);
    }
    return Result::failed;
  }

  Result failWithErrno(bool &side, int number) {
    return fail(side, number, std::generic_category().message(number));
  }

  // After each call of the library: what it came to.
  Result finish(int returned) {
    const int code = SSL_get_error(ssl.get(), returned);
    if (code == SSL_ERROR_NONE) {
      ERR_clear_error();
      return Result::done;
    }
    const bool hasReason = ERR_peek_error() != 0;
    std::string reason = takeLibraryError();
    if (transport.errorNumber != 0) {
      return failWithErrno(readFailed, transport.errorNumber);
    }
    if (code == SSL_ERROR_WANT_READ) {
      return Result::wantsRead;
    }
    if (code == SSL_ERROR_WANT_WRITE) {
      return Result::wantsWrite;
    }
    if (code == SSL_ERROR_ZERO_RETURN || (transport.ended && !hasReason)) {
      return Result::ended;
    }
    return fail(readFailed, EPROTO, std::move(reason));
  }

  Result read(std::span<std::uint8_t> buffer, std::size_t &length) {
    begin(kReceivedPerRead);
    const Result result = finish(SSL_read_ex(ssl.get(), buffer.data(), buffer.size(), &length));
    if (transport.keyUpdates > kMostKeyUpdates) {
      return failWithErrno(readFailed, EPROTO);
    }
    if (result == Result::done) {
      transport.keyUpdates = 0;
    }
    return result;
  }

  // True if the next record is there and so short that it belongs to a full one before it. It stays
  // where it is. A failure that is met here shows at the next call.
  bool tailFollows() {
    std::array<std::uint8_t, kTailBytes + 1> tail{};
    std::size_t length = 0;
    begin(kReceivedPerRead);
    const Result result = finish(SSL_peek_ex(ssl.get(), tail.data(), tail.size(), &length));
    base::cleanse(tail.data(), tail.size());
    return result == Result::done && length <= kTailBytes;
  }
};

TlsChannel::TlsChannel(const TlsContext &context, Role role, int socket)
    : state_(std::make_unique<State>(socket)) {
  State &state = *state_;
  state.begin();
  state.ssl.reset(SSL_new(context.native()));
  if (!state.ssl) {
    throw std::bad_alloc();
  }
  state.transport.attach(state.ssl.get());
  if (role == Role::server) {
    SSL_set_accept_state(state.ssl.get());
  } else {
    SSL_set_connect_state(state.ssl.get());
  }
}

TlsChannel::~TlsChannel() = default;

TlsChannel::Result TlsChannel::handshake() {
  if (state_->readFailed || state_->writeFailed) {
    return Result::failed;
  }
  state_->begin(kReceivedPerStep);
  Result result = state_->finish(SSL_do_handshake(state_->ssl.get()));
  if (result == Result::ended) {
    result = state_->failWithErrno(state_->readFailed, ECONNRESET);
  }
  // also after a failure: the alert tells the peer why
  const Result flushed = flush();
  return result == Result::failed || flushed == Result::done ? result : flushed;
}

TlsChannel::Result TlsChannel::readRecord(std::span<std::uint8_t> buffer, std::size_t &length) {
  length = 0;
  return state_->readFailed ? Result::failed : state_->read(buffer.first(kTlsRecordBytes), length);
}

TlsChannel::Result TlsChannel::readChunk(std::span<std::uint8_t> buffer, ByteView &chunk) {
  chunk = {};
  std::size_t length = 0;
  const Result result = readRecord(buffer, length);
  if (result != Result::done) {
    return result;
  }
  if (length == kTlsRecordBytes && state_->tailFollows()) {
    std::size_t tail = 0;
    if (state_->read(buffer.subspan(kTlsRecordBytes, kTailBytes), tail) == Result::done) {
      length += tail;
    }
  }
  chunk = buffer.first(length);
  return Result::done;
}

bool TlsChannel::mayHoldMore() const {
  return state_->readFailed || !state_->transport.isDrained ||
         SSL_has_pending(state_->ssl.get()) == 1;
}

std::size_t TlsChannel::encryptRecord(ByteView unit) {
  if (state_->writeFailed || unit.empty()) {
    return 0;
  }
  std::size_t length = std::min(unit.size(), kTlsRecordBytes);
  const std::size_t rest = unit.size() - length;
  if (rest > 0 && rest <= kTailBytes) {
    length -= kTailBytes + 1 - rest;
  }
  state_->begin();
  std::size_t written = 0;
  if (SSL_write_ex(state_->ssl.get(), unit.data(), length, &written) != 1) {
    state_->fail(state_->writeFailed, EPROTO, takeLibraryError());
    return 0;
  }
  return written;
}

TlsChannel::Result TlsChannel::flush() {
  Bytes &output = state_->transport.output;
  if (state_->writeFailed) {
    return Result::failed;
  }
  if (output.empty()) {
    return Result::done;
  }
  ssize_t sent = 0;
  do {
    sent =
        ::send(state_->transport.socket, output.data(), output.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  } while (sent < 0 && errno == EINTR);
  if (sent < 0 && errno != EAGAIN && errno != EWOULDBLOCK) {
    const int cause = errno;
    output = Bytes();
    return state_->failWithErrno(state_->writeFailed, cause);
  }
  if (sent == static_cast<ssize_t>(output.size())) {
    output.clear();
    return Result::done;
  }
  output.erase(output.begin(), output.begin() + std::max<ssize_t>(sent, 0));
  return Result::wantsWrite;
}

void TlsChannel::releaseBuffers() {
  SSL_free_buffers(state_->ssl.get());
  state_->transport.output.shrink_to_fit();
}

std::size_t TlsChannel::unsentBytes() const {
  return state_->transport.output.size();
}

void TlsChannel::sendCloseNotify() {
  state_->begin();
  // fails where there is nobody to greet: before the handshake's end and after a failure
  SSL_shutdown(state_->ssl.get());
  ERR_clear_error();
}

int TlsChannel::errorNumber() const {
  return state_->errorNumber;
}

std::string TlsChannel::errorText() const {
  return state_->errorText;
}

std::optional<Certificate> TlsChannel::peerCertificate() const {
  std::shared_ptr<X509> certificate(SSL_get1_peer_certificate(state_->ssl.get()), X509_free);
  if (!certificate) {
    return std::nullopt;
  }
  return Certificate(std::move(certificate));
}

}  // namespace crypto
