#include "linux/log/RetryTimer.hpp"

#include <algorithm>
#include <utility>

namespace platform_linux {
namespace {

constexpr std::chrono::milliseconds kFirstPause{10};
constexpr std::chrono::milliseconds kLongestPause{500};

}  // namespace

RetryTimer::RetryTimer(platform::MainQueue &queue, std::mutex &mutex,
                       std::function<Passage()> attempt)
    : queue_(queue), mutex_(mutex), attempt_(std::move(attempt)), pause_(kFirstPause) {}

void RetryTimer::arm() {
  if (isArmed_) {
    return;
  }
  queue_.postAfter(pause_, [this, life = std::weak_ptr<bool>(life_)] {
    if (!life.expired()) {
      fire();
    }
  });
  isArmed_ = true;  // unless there was no memory
}

void RetryTimer::fire() {
  const std::lock_guard lock(mutex_);
  isArmed_ = false;
  const Passage passage = attempt_();
  pause_ = passage == Passage::stuck ? std::min(pause_ * 2, kLongestPause) : kFirstPause;
  if (passage != Passage::complete) {
    arm();
  }
}

}  // namespace platform_linux
