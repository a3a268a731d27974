#pragma once

#include <openssl/types.h>

#include <cstddef>

#include "base/Bytes.hpp"

struct bio_method_st;

namespace crypto {

// The socket under a TLS connection as OpenSSL sees it: it reads from the socket and writes into
// `output`. Never blocks. For this folder's own files.
class TlsTransport {
 public:
  // `socket` is borrowed. Throws std::bad_alloc if the library has no memory.
  explicit TlsTransport(int socket);
  ~TlsTransport();
  TlsTransport(const TlsTransport &) = delete;
  TlsTransport &operator=(const TlsTransport &) = delete;

  // Makes this the transport of `ssl`, which must go first.
  void attach(SSL *ssl);

  int socket;
  Bytes output;                // not sent yet
  std::size_t mayReceive = 0;  // bytes; the caller sets it before each call of the library
  int keyUpdates = 0;          // that were received
  bool isDrained = false;      // nothing was left in the socket when it was last read
  bool ended = false;          // the peer has ended its stream
  int errorNumber = 0;         // the errno value of a failed receive

 private:
  bio_method_st *method_;
};

}  // namespace crypto
