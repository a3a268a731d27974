#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>

#include "platform/MainQueue.hpp"

namespace platform_linux {

// The result of one try to send: nothing waits any more, something was sent, or nothing was.
enum class Passage { complete, partial, stuck };

// Tries to pass things on from events of the main queue: 10 ms after it is armed and, while
// something waits, again; after a try in which nothing went the pause doubles, up to 500 ms. The
// queue need not run yet and may outlive the timer: what is armed then does nothing.
class RetryTimer {
 public:
  // A try is made with the mutex held, and so arm() has to be called.
  RetryTimer(platform::MainQueue &queue, std::mutex &mutex, std::function<Passage()> attempt);

  // Makes sure that a try is on its way.
  void arm();

 private:
  void fire();

  platform::MainQueue &queue_;
  std::mutex &mutex_;
  std::function<Passage()> attempt_;
  std::chrono::milliseconds pause_;
  bool isArmed_ = false;
  std::shared_ptr<bool> life_ = std::make_shared<bool>(true);  // events hold it weakly
};

}  // namespace platform_linux
