#include "crypto/TlsChannel.hpp"

#include <openssl/bio.h>
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

namespace crypto {
namespace {

// A record that is no longer than this and follows a full one belongs to the same chunk.
constexpr std::size_t kTailBytes = 8;

// What one call may take from the socket. A record is a fraction of it and a chain of certificates
// is at most 100 KiB: whoever needs more sends nothing but key updates and the like, which would
// hold the caller's loop for as long as they come.
constexpr std::size_t kReceivedPerCall = 128 * 1024;

// The socket's side of the BIO.
struct Transport {
  int socket = -1;
  Bytes output;
  std::size_t receivedInCall = 0;
  bool ended = false;
  int errorNumber = 0;
};

Transport &transportOf(BIO *bio) {
  return *static_cast<Transport *>(BIO_get_data(bio));
}

int readTransport(BIO *bio, char *data, std::size_t size, std::size_t *length) noexcept {
  Transport &transport = transportOf(bio);
  BIO_clear_retry_flags(bio);
  if (transport.receivedInCall >= kReceivedPerCall) {
    transport.errorNumber = EPROTO;
    return 0;
  }
  ssize_t got = 0;
  do {
    got = ::recv(transport.socket, data, size, MSG_DONTWAIT);
  } while (got < 0 && errno == EINTR);
  if (got > 0) {
    *length = static_cast<std::size_t>(got);
    transport.receivedInCall += *length;
    return 1;
  }
  if (got == 0) {
    transport.ended = true;
  } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
    BIO_set_retry_read(bio);
  } else {
    transport.errorNumber = errno;
  }
  return 0;
}

int writeTransport(BIO *bio, const char *data, std::size_t size, std::size_t *length) noexcept {
  Bytes &output = transportOf(bio).output;
  output.insert(output.end(), data, data + size);
  *length = size;
  return 1;
}

long controlTransport(BIO *bio, int command, long /*number*/, void * /*argument*/) noexcept {
  switch (command) {
    case BIO_CTRL_FLUSH:  // the output is sent by flush() alone
      return 1;
    case BIO_CTRL_EOF:  // tells a FIN from a failure
      return transportOf(bio).ended ? 1 : 0;
    default:
      return 0;
  }
}

using Method = Owned<BIO_METHOD, BIO_meth_free>;

// One for each channel and with no index of its own: a driver that its host loads and unloads often
// would use up the library's indexes, and a global one would go before the host's last channel.
Method makeMethod() {
  Method method(BIO_meth_new(BIO_TYPE_SOURCE_SINK, "socket with output buffer"));
  if (method) {
    BIO_meth_set_read_ex(method.get(), readTransport);
    BIO_meth_set_write_ex(method.get(), writeTransport);
    BIO_meth_set_ctrl(method.get(), controlTransport);
  }
  return method;
}

std::shared_ptr<SSL_CTX> newContext(const SSL_METHOD *method, Error *error) {
  ERR_clear_error();
  std::shared_ptr<SSL_CTX> context(SSL_CTX_new_ex(libraryContext(), nullptr, method), SSL_CTX_free);
  if (!context || SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION) != 1 ||
      SSL_CTX_set_num_tickets(context.get(), 0) != 1) {
    reportLibraryError(error, "cannot set up TLS");
    return nullptr;
  }
  SSL_CTX_set_options(context.get(), SSL_OP_NO_TICKET | SSL_OP_NO_RENEGOTIATION |
                                         SSL_OP_IGNORE_UNEXPECTED_EOF |
                                         SSL_OP_CIPHER_SERVER_PREFERENCE);
  // No chain is put together from the machine's own certificates: peers pin the one that is shown.
  SSL_CTX_set_mode(context.get(), SSL_MODE_RELEASE_BUFFERS | SSL_MODE_NO_AUTO_CHAIN);
  SSL_CTX_set_session_cache_mode(context.get(), SSL_SESS_CACHE_OFF);
  SSL_CTX_set_max_early_data(context.get(), 0);
  SSL_CTX_set_read_ahead(context.get(), 1);
  SSL_CTX_set_verify(context.get(), SSL_VERIFY_NONE, nullptr);
  return context;
}

}  // namespace

std::optional<TlsContext> TlsContext::server(const Identity &identity, Error *error) {
  std::shared_ptr<SSL_CTX> context = newContext(TLS_server_method(), error);
  if (!context) {
    return std::nullopt;
  }
  if (SSL_CTX_use_certificate(context.get(), identity.certificate.native()) != 1 ||
      SSL_CTX_use_PrivateKey(context.get(), identity.key.native()) != 1 ||
      SSL_CTX_check_private_key(context.get()) != 1) {
    reportLibraryError(error, "the identity cannot be used for TLS");
    return std::nullopt;
  }
  return TlsContext(std::move(context));
}

std::optional<TlsContext> TlsContext::client(Error *error) {
  std::shared_ptr<SSL_CTX> context = newContext(TLS_client_method(), error);
  if (!context) {
    return std::nullopt;
  }
  return TlsContext(std::move(context));
}

struct TlsChannel::State {
  Transport transport;
  Method method = makeMethod();
  Owned<SSL, SSL_free> ssl;  // goes before what its BIO points to
  bool readFailed = false;   // kept apart: what came in before a failed send can still be read
  bool writeFailed = false;
  int errorNumber = 0;
  std::string errorText;

  // Before each call of the library: nothing of another connection may show on this one.
  void begin() {
    ERR_clear_error();
    transport.receivedInCall = 0;
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
    begin();
    return finish(SSL_read_ex(ssl.get(), buffer.data(), buffer.size(), &length));
  }

  // True if the next record is there and so short that it belongs to a full one before it. It stays
  // where it is. A failure that is met here shows at the next call.
  bool tailFollows() {
    std::array<std::uint8_t, kTailBytes + 1> tail{};
    std::size_t length = 0;
    begin();
    const Result result = finish(SSL_peek_ex(ssl.get(), tail.data(), tail.size(), &length));
    base::cleanse(tail.data(), tail.size());
    return result == Result::done && length <= kTailBytes;
  }
};

TlsChannel::TlsChannel(const TlsContext &context, Role role, int socket)
    : state_(std::make_unique<State>()) {
  State &state = *state_;
  state.transport.socket = socket;
  state.begin();
  state.ssl.reset(SSL_new(context.native()));
  BIO *bio = state.method ? BIO_new_ex(libraryContext(), state.method.get()) : nullptr;
  if (!state.ssl || bio == nullptr) {
    BIO_free(bio);
    throw std::bad_alloc();
  }
  BIO_set_data(bio, &state.transport);
  BIO_set_init(bio, 1);
  SSL_set_bio(state.ssl.get(), bio, bio);
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
  state_->begin();
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
    output = Bytes();
    return Result::done;
  }
  output.erase(output.begin(), output.begin() + std::max<ssize_t>(sent, 0));
  return Result::wantsWrite;
}

std::size_t TlsChannel::unsentBytes() const {
  return state_->transport.output.size();
}

void TlsChannel::sayGoodbye() {
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
