#include <openssl/err.h>
#include <openssl/ssl.h>

#include <utility>

#include "crypto/Library.hpp"
#include "crypto/TlsChannel.hpp"

namespace crypto {
namespace {

// For TLS 1.2; all suites of TLS 1.3 are of this kind. No CBC, which has let padding be told apart
// (RFC 7366), and no key exchange by RSA decryption, which lets whoever gets the key later read
// what was recorded before (RFC 9325 4.1).
constexpr const char *kAEADSuites = "ECDHE+AESGCM:ECDHE+CHACHA20";

std::shared_ptr<SSL_CTX> newContext(const SSL_METHOD *method, Error *error) {
  ERR_clear_error();
  std::shared_ptr<SSL_CTX> context(SSL_CTX_new_ex(libraryContext(), nullptr, method), SSL_CTX_free);
  if (!context || SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION) != 1 ||
      SSL_CTX_set_cipher_list(context.get(), kAEADSuites) != 1 ||
      SSL_CTX_set_num_tickets(context.get(), 0) != 1) {
    reportLibraryError(error, "cannot set up TLS");
    return nullptr;
  }
  // What was received is overwritten in the library's buffers: it may hold a PIN.
  SSL_CTX_set_options(context.get(), SSL_OP_NO_TICKET | SSL_OP_NO_RENEGOTIATION |
                                         SSL_OP_CLEANSE_PLAINTEXT | SSL_OP_IGNORE_UNEXPECTED_EOF |
                                         SSL_OP_CIPHER_SERVER_PREFERENCE);
  // No chain is put together from the machine's own certificates: peers pin the one that is shown.
  SSL_CTX_set_mode(context.get(), SSL_MODE_NO_AUTO_CHAIN);
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

}  // namespace crypto
