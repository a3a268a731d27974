#pragma once

#include <memory>

#include "base/Secret.hpp"
#include "linux/network/AsioMainQueue.hpp"
#include "linux/network/BufferQuota.hpp"
#include "linux/network/HeapTrim.hpp"
#include "linux/network/StallWatch.hpp"
#include "linux/network/UnauthenticatedTurns.hpp"

namespace platform_linux {

// What the links of a network share.
struct NetworkResources {
  AsioMainQueue &queue;
  CleansedBytes buffer;  // for one chunk at a time
  std::shared_ptr<UnauthenticatedTurns> unauthenticated;
  std::shared_ptr<BufferQuota> quota;
  std::shared_ptr<StallWatch> stalls;
  std::shared_ptr<HeapTrim> heap;
  platform::LimitReporter reporter;
};

}  // namespace platform_linux
