#include "crypto/TlsTransport.hpp"

#include <openssl/bio.h>
#include <openssl/ssl.h>
#include <sys/socket.h>

#include <cerrno>
#include <new>

#include "crypto/Library.hpp"

namespace crypto {
namespace {

// What one call may take from the socket. A record is a fraction of it and a chain of certificates
// is at most 100 KiB: whoever needs more sends nothing but key updates and the like, which would
// hold the caller's loop for as long as they come.
constexpr std::size_t kReceivedPerCall = 128 * 1024;

TlsTransport &transportOf(BIO *bio) {
  return *static_cast<TlsTransport *>(BIO_get_data(bio));
}

int readTransport(BIO *bio, char *data, std::size_t size, std::size_t *length) noexcept {
  TlsTransport &transport = transportOf(bio);
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

// With no index of its own: a driver that its host loads and unloads often would use up the
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

// A method for each, since a common one would go before the last connection of a program that ends.
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
}

}  // namespace crypto
