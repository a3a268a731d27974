#include "crypto/Library.hpp"

#include <openssl/err.h>

#include <atomic>

namespace crypto {
namespace {

std::atomic<OSSL_LIB_CTX *> chosenContext{nullptr};

}  // namespace

OSSL_LIB_CTX *libraryContext() {
  return chosenContext.load(std::memory_order_acquire);
}

void setLibraryContext(OSSL_LIB_CTX *context) {
  chosenContext.store(context, std::memory_order_release);
}

std::string takeLibraryError() {
  const char *data = nullptr;
  int flags = 0;
  const unsigned long first = ERR_get_error_all(nullptr, nullptr, nullptr, &data, &flags);
  if (first == 0) {
    return "unknown error";
  }
  const char *reason = ERR_reason_error_string(first);
  std::string text = reason == nullptr ? "unknown error" : reason;
  if ((flags & ERR_TXT_STRING) != 0 && data != nullptr && *data != '\0') {
    text += std::string(" (") + data + ")";
  }
  ERR_clear_error();
  return text;
}

void reportLibraryError(Error *error, const std::string &what) {
  const int code = ERR_GET_REASON(ERR_peek_error());
  base::report(error, "openssl", code, what + ": " + takeLibraryError());
}

}  // namespace crypto
