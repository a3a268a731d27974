#include "linux/clock/SystemClock.hpp"

#include <ctime>
#include <thread>

namespace platform_linux {

platform::Clock::Time SystemClock::now() {
  return std::chrono::system_clock::now();
}

std::chrono::seconds SystemClock::utcOffsetAt(Time time) {
  // localtime_r alone need not look at a zone that was changed while the process runs
  ::tzset();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm parts{};
  if (::localtime_r(&seconds, &parts) == nullptr) {
    return std::chrono::seconds{0};
  }
  return std::chrono::seconds{parts.tm_gmtoff};
}

void SystemClock::pause(std::chrono::milliseconds duration) {
  std::this_thread::sleep_for(duration);
}

}  // namespace platform_linux
