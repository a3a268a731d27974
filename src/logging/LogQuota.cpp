#include "logging/LogQuota.hpp"

#include <algorithm>
#include <chrono>
#include <utility>

namespace logging {

bool LogQuota::tryAcquire(std::uint64_t bytesPerSecond, platform::Clock::Time now) {
  if (bytesPerSecond == 0) {
    return true;
  }
  refill(bytesPerSecond, now);
  if (left_ > 0) {
    return true;
  }
  ++leftOut_;
  return false;
}

std::uint64_t LogQuota::takeLeftOut(std::uint64_t bytesPerSecond, platform::Clock::Time now) {
  refill(bytesPerSecond, now);
  return bytesPerSecond == 0 || left_ > 0 ? std::exchange(leftOut_, 0) : 0;
}

void LogQuota::refill(std::uint64_t bytesPerSecond, platform::Clock::Time now) {
  const auto most = static_cast<double>(bytesPerSecond);
  // A clock that was set back begins a new second, so that it silences nobody for longer.
  const double seconds = now < filled_ ? 1 : std::chrono::duration<double>(now - filled_).count();
  left_ = std::min(most, left_ + seconds * most);
  filled_ = now;
}

}  // namespace logging
