#pragma once

namespace driver {

// Makes all of crypto use an OpenSSL library context of the driver's own, so that the driver never
// calls the program's engines and providers, one of which may have called the driver. The context
// is never freed, since keys that live longer may use it.
void useOwnOpenSSLContext();

// For the child of a fork: the next call of useOwnOpenSSLContext creates a new context. A thread
// that does not exist in the child may hold locks of the old one.
void dropInheritedOpenSSLContext();

// Call first in each entry point. Once for each thread, it triggers the lazy initialization of
// OpenSSL, the C++ library and our static objects, and it delays any fork meanwhile: a child that
// is forked while another thread holds an initialization lock would wait for it forever. Forks are
// delayed too while OpenSSL frees the state of an ending thread. Waits no longer than these steps
// take.
void prepareThread();

}  // namespace driver
