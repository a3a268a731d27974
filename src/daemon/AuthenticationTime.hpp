#pragma once

#include <cstdint>
#include <vector>

#include "logging/LimitLog.hpp"
#include "platform/MainQueue.hpp"
#include "platform/UserDefaults.hpp"
#include "worker/QuillWorker.hpp"

namespace kfyd {

// Ends public connections that have not authenticated within the time that the setting
// `unauthenticatedSeconds` gives them. Time is counted in whole seconds by one timer, which runs
// only while there is such a connection. A timer for each connection would outlive it, and
// strangers come and go.
class AuthenticationTime {
 public:
  // All arguments are borrowed and outlive this. `workers` are the connections to check.
  AuthenticationTime(platform::MainQueue &queue, platform::UserDefaults &defaults,
                     logging::LimitLog &limits, const std::vector<QuillWorker::Shared> &workers);

  // A public connection was accepted.
  void begin();

 private:
  void second();
  [[nodiscard]] bool countSecond(std::uint64_t most);

  platform::MainQueue &queue_;
  platform::UserDefaults &defaults_;
  logging::LimitLog &limits_;
  const std::vector<QuillWorker::Shared> &workers_;
  bool isCounting_ = false;
};

}  // namespace kfyd
