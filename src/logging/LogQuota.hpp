#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/Clock.hpp"

namespace logging {

// Limits what connections that have not authenticated make the process log: an average number of
// bytes a second, and one second's worth at once. Counts the lines that were left out.
class LogQuota {
 public:
  // True if a line may be written now; otherwise it counts as left out. 0 bytes a second: no limit.
  [[nodiscard]] bool tryAcquire(std::uint64_t bytesPerSecond, platform::Clock::Time now);

  // Notes that a line of this size was written. A long line delays the following ones.
  void spend(std::size_t bytes) { left_ -= static_cast<double>(bytes); }

  // The number of lines left out since the last call, as soon as a line may be written again; until
  // then 0.
  [[nodiscard]] std::uint64_t takeLeftOut(std::uint64_t bytesPerSecond, platform::Clock::Time now);

  [[nodiscard]] bool hasLeftOut() const { return leftOut_ > 0; }

 private:
  void refill(std::uint64_t bytesPerSecond, platform::Clock::Time now);

  double left_ = 0;  // bytes
  platform::Clock::Time filled_;
  std::uint64_t leftOut_ = 0;
};

}  // namespace logging
