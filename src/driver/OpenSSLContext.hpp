#pragma once

namespace driver {

// Makes sure that all of crypto works in an OpenSSL library context of the driver's own, so that
// nothing of ours reaches the program's engines and providers, one of which may be what called us.
// The context is never released: keys that live longer may need it.
void useOwnOpenSSLContext();

// In a process that came from fork: the next call above makes a new context, since a thread that is
// not here any more may hold locks of the old one.
void dropInheritedOpenSSLContext();

// To be called first in each call of a program. Does, once for each thread, what the libraries
// below do at the first use in a thread or process under locks and guards that are not ours: a
// process that is forked while another thread holds one of them would wait for it for ever, since
// that thread is not in it. So no fork happens meanwhile, nor while a thread that has called gives
// back what OpenSSL keeps for it. Never waits for longer than that takes.
void prepareThread();

}  // namespace driver
