#pragma once

namespace driver {

// Makes sure that all of crypto works in an OpenSSL library context of the driver's own, so that
// nothing of ours reaches the program's engines and providers, one of which may be what called us.
// The context is never released: keys that live longer may need it.
void workInOwnContext();

// In a process that came from fork: the next call above makes a new context, since a thread that is
// not here any more may hold locks of the old one.
void leaveInheritedContext();

}  // namespace driver
