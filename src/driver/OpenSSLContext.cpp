#include "driver/OpenSSLContext.hpp"

#include <openssl/crypto.h>
#include <openssl/err.h>
#include <pthread.h>

#include <functional>
#include <mutex>
#include <new>

#include "base/Root.hpp"
#include "base/UUID.hpp"
#include "crypto/ErrorQueue.hpp"
#include "crypto/Library.hpp"
#include "crypto/Owned.hpp"
#include "logging/LogPlatform.hpp"

namespace driver {
namespace {

// Recursive, since a signal handler may fork in a thread that holds it.
constexpr pthread_mutex_t kUnlocked = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
pthread_mutex_t forkMutex = kUnlocked;

class ForkLock {
 public:
  ForkLock() { ::pthread_mutex_lock(&forkMutex); }
  ~ForkLock() { ::pthread_mutex_unlock(&forkMutex); }
  ForkLock(const ForkLock &) = delete;
  ForkLock &operator=(const ForkLock &) = delete;
};

// The value is set in threads that are prepared.
pthread_key_t threadKey;
bool hasKey = false;
pthread_once_t setUpOnce = PTHREAD_ONCE_INIT;  // which, unlike others, a child of fork finds usable

// Before OpenSSL's own destructor, whose key is younger where the program does not use OpenSSL
// itself. Does nothing after the library was shut down.
void releaseThreadState(void * /*value*/) {
  const ForkLock lock;
  OPENSSL_thread_stop();
}

void setUp() {
  hasKey = ::pthread_key_create(&threadKey, releaseThreadState) == 0;
  // the child's thread is not the one that locked it
  (void)::pthread_atfork([] { ::pthread_mutex_lock(&forkMutex); },
                         [] { ::pthread_mutex_unlock(&forkMutex); }, [] { forkMutex = kUnlocked; });
}

void initializeLibraries() {
  // first of all: who uses the library first decides that it gets no exit handler, which would take
  // its locks in a child as well
  (void)crypto::libraryHasEnded();
  (void)ERR_peek_error();  // its state of this thread
  // static objects
  (void)base::root();
  (void)std::hash<UUID>()(UUID::random());
  (void)logging::logPlatform();
  // thread-local objects of the C++ library, for which the loader may have to make room
  std::once_flag once;
  std::call_once(once, [] {});
}

}  // namespace

void useOwnOpenSSLContext() {
  if (crypto::libraryContext() != nullptr) {
    return;
  }
  crypto::Owned<OSSL_LIB_CTX, OSSL_LIB_CTX_free> context(OSSL_LIB_CTX_new());
  if (!context) {
    throw std::bad_alloc();
  }
  crypto::setLibraryContext(context.release());
}

void dropInheritedOpenSSLContext() {
  crypto::setLibraryContext(/*context=*/nullptr);
}

void prepareThread() {
  (void)::pthread_once(&setUpOnce, setUp);
  if (hasKey && ::pthread_getspecific(threadKey) != nullptr) {
    return;
  }
  const ForkLock lock;
  initializeLibraries();
  if (hasKey) {
    (void)::pthread_setspecific(threadKey, &threadKey);
  }
}

}  // namespace driver
