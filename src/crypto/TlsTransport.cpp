#include "crypto/TlsTransport.hpp"

#include <openssl/bio.h>
#include <openssl/ssl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <new>

#include "crypto/Library.hpp"

namespace crypto {
namespace {

TlsTransport &transportOf(BIO *bio) {
  return *static_cast<TlsTransport *>(BIO_get_data(bio));
}

int readTransport(BIO *bio, char *data, std::size_t size, std::size_t *length) noexcept {
  TlsTransport &transport = transportOf(bio);
  BIO_clear_retry_flags(bio);
  if (transport.mayReceive == 0) {
    transport.errorNumber = EPROTO;
    return 0;
  }
  ssize_t got = 0;
  do {
    got = ::recv(transport.socket, data, size, MSG_DONTWAIT);
  } while (got < 0 && errno == EINTR);
  transport.isDrained = got < 0 || static_cast<std::size_t>(got) < size;
  if (got > 0) {
    *length = static_cast<std::size_t>(got);
    transport.mayReceive -= std::min(transport.mayReceive, *length);
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
  try {
    const auto *const bytes = reinterpret_cast<const std::uint8_t *>(data);
    output.insert(output.end(), bytes, bytes + size);
  } catch (const std::bad_alloc &) {  // no exception may pass the library
    return 0;
  }
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

void countKeyUpdates(int isWritten, int /*version*/, int type, const void *message,
                     std::size_t size, SSL * /*ssl*/, void *transport) noexcept {
  if (isWritten == 0 && type == SSL3_RT_HANDSHAKE && size > 0 &&
      *static_cast<const std::uint8_t *>(message) == SSL3_MT_KEY_UPDATE) {
    ++static_cast<TlsTransport *>(transport)->keyUpdates;
  }
}

// Without an own type index: a program that loads and unloads the driver often would use up the
// library's indexes.
BIO_METHOD *newMethod() {
  BIO_METHOD *method = BIO_meth_new(BIO_TYPE_SOURCE_SINK, "socket with output buffer");
  if (method == nullptr) {
    throw std::bad_alloc();
  }
  BIO_meth_set_read_ex(method, readTransport);
  BIO_meth_set_write_ex(method, writeTransport);
  BIO_meth_set_ctrl(method, controlTransport);
  return method;
}

}  // namespace

// Each transport has its own method: a shared static one could be destroyed at exit before the last
// connection.
TlsTransport::TlsTransport(int theSocket) : socket(theSocket), method_(newMethod()) {}

TlsTransport::~TlsTransport() {
  BIO_meth_free(method_);
}

void TlsTransport::attach(SSL *ssl) {
  BIO *bio = BIO_new_ex(libraryContext(), method_);
  if (bio == nullptr) {
    throw std::bad_alloc();
  }
  BIO_set_data(bio, this);
  BIO_set_init(bio, 1);
  SSL_set_bio(ssl, bio, bio);
  SSL_set_msg_callback(ssl, countKeyUpdates);
  SSL_set_msg_callback_arg(ssl, this);
}

}  // namespace crypto
