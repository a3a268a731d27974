#pragma once

#include "platform/Network.hpp"

namespace worker {

// The line on standard error for a connection that failed, before or after its handshake was done.
void warnConnectionFailed(const platform::Endpoint &peer, int errorNumber);

}  // namespace worker
