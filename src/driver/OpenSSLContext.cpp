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

// Recursive, since a signal handler may fork in the thread that holds it.
constexpr pthread_mutex_t kUnlocked = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
pthread_mutex_t forkMutex = kUnlocked;

class ForkLock {
 public:
  ForkLock() { ::pthread_mutex_lock(&forkMutex); }
  ~ForkLock() { ::pthread_mutex_unlock(&forkMutex); }
  ForkLock(const ForkLock &) = delete;
  ForkLock &operator=(const ForkLock &) = delete;
};

// Has a value in threads that are prepared.
pthread_key_t threadKey;
bool hasKey = false;

// Unlike std::once_flag, usable in the child of a fork.
pthread_once_t setUpOnce = PTHREAD_ONCE_INIT;

// Runs before OpenSSL's own thread destructor if the program does not use OpenSSL itself. No effect
// after OpenSSL was shut down.
void releaseThreadState(void * /*value*/) {
  const ForkLock lock;
  OPENSSL_thread_stop();
}

void setUp() {
  hasKey = ::pthread_key_create(&threadKey, releaseThreadState) == 0;
  // the child's thread does not own the mutex, so it is reset there
  (void)::pthread_atfork([] { ::pthread_mutex_lock(&forkMutex); },
                         [] { ::pthread_mutex_unlock(&forkMutex); }, [] { forkMutex = kUnlocked; });
}

void initializeLibraries() {
  // Must be first: the first use of OpenSSL disables its exit handler, which would take locks in a
  // child too.
  (void)crypto::libraryHasEnded();
  (void)ERR_peek_error();  // creates OpenSSL's state of this thread
  // initializes static objects
  (void)base::root();
  (void)std::hash<UUID>()(UUID::random());
  (void)logging::logPlatform();
  // Initializes thread-local objects of the C++ library, for which the loader may allocate memory.
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
