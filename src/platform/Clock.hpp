#pragma once

#include <chrono>

namespace platform {

// Wall time with the local zone, and a pause.
class Clock {
 public:
  using Time = std::chrono::system_clock::time_point;

  virtual ~Clock() = default;

  // The current time. May go back when somebody sets the clock.
  [[nodiscard]] virtual Time now() = 0;

  // How far the local time zone is ahead of UTC at `time`.
  [[nodiscard]] virtual std::chrono::seconds utcOffsetAt(Time time) = 0;

  // Blocks the calling thread for `duration`.
  virtual void pause(std::chrono::milliseconds duration) = 0;
};

}  // namespace platform
