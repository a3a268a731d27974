#pragma once

#include <openssl/types.h>

#include <string>

#include "base/Error.hpp"

namespace crypto {

// The OpenSSL library context that this folder uses. It is the default one (null), unless code that
// lives inside a foreign program has set its own before it first used this folder.
[[nodiscard]] OSSL_LIB_CTX *libraryContext();
void setLibraryContext(OSSL_LIB_CTX *context);

// Empties this thread's OpenSSL error queue and gives its first entry as text, "unknown error" if
// there is none.
[[nodiscard]] std::string takeLibraryError();

// Fills *error, if there is a place, with `what` and the library's own reason; empties the queue.
void reportLibraryError(Error *error, const std::string &what);

}  // namespace crypto
