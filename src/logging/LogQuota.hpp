#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/Clock.hpp"

namespace logging {

// How much may be written to the logs on behalf of connections that have not authenticated: so many
// bytes a second, on average, and a second's worth at once. Counts the lines that were left out.
class LogQuota {
 public:
  // True if a line may be written now; else one more was left out. 0 bytes a second: no limit.
  [[nodiscard]] bool admits(std::uint64_t bytesPerSecond, platform::Clock::Time now);

  // A line of this size was written. A long one is paid for by those that follow.
  void spend(std::size_t bytes) { left_ -= static_cast<double>(bytes); }

  // The lines that were left out since the last call, once there is room for a line again; 0 while
  // there is none.
  [[nodiscard]] std::uint64_t takeLeftOut(std::uint64_t bytesPerSecond, platform::Clock::Time now);

  [[nodiscard]] bool hasLeftOut() const { return leftOut_ > 0; }

 private:
  void refill(std::uint64_t bytesPerSecond, platform::Clock::Time now);

  double left_ = 0;  // bytes
  platform::Clock::Time filled_;
  std::uint64_t leftOut_ = 0;
};

}  // namespace logging
