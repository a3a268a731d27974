#pragma once

#include "platform/Clock.hpp"

namespace platform_linux {

// The system's wall clock; the local zone is the process's ($TZ, else /etc/localtime).
class SystemClock : public platform::Clock {
 public:
  [[nodiscard]] Time now() override;
  [[nodiscard]] std::chrono::seconds utcOffsetAt(Time time) override;
  void pause(std::chrono::milliseconds duration) override;
};

}  // namespace platform_linux
