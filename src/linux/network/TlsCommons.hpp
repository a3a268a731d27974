#pragma once

#include <memory>

#include "base/Secret.hpp"
#include "linux/network/AsioMainQueue.hpp"
#include "linux/network/HandshakeTurns.hpp"
#include "linux/network/Ledger.hpp"
#include "linux/network/StallWatch.hpp"

namespace platform_linux {

// What the links of a network share.
struct TlsCommons {
  AsioMainQueue &queue;
  CleansedBytes buffer;  // for one chunk at a time
  std::shared_ptr<HandshakeTurns> handshakes;
  std::shared_ptr<Ledger> ledger;
  std::shared_ptr<StallWatch> stalls;
  platform::LimitReporter reporter;
};

}  // namespace platform_linux
