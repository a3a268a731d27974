#include "driver/OwnContext.hpp"

#include <openssl/crypto.h>

#include <new>

#include "crypto/Library.hpp"
#include "crypto/Owned.hpp"

namespace driver {

void workInOwnContext() {
  if (crypto::libraryContext() != nullptr) {
    return;
  }
  crypto::Owned<OSSL_LIB_CTX, OSSL_LIB_CTX_free> context(OSSL_LIB_CTX_new());
  if (!context) {
    throw std::bad_alloc();
  }
  crypto::setLibraryContext(context.release());
}

void leaveInheritedContext() {
  crypto::setLibraryContext(/*context=*/nullptr);
}

}  // namespace driver
