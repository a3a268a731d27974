#pragma once

#include <vector>

#include "platform/Clock.hpp"

namespace fakes {

// A clock that stands still until the test moves it. A pause moves it and is noted.
class FakeClock : public platform::Clock {
 public:
  Time now() override { return time; }
  std::chrono::seconds utcOffsetAt(Time) override { return offset; }
  void pause(std::chrono::milliseconds duration) override {
    pauses.push_back(duration);
    time += duration;
  }

  Time time{std::chrono::seconds(1741940813)};  // 2025-03-14 08:26:53 UTC
  std::chrono::seconds offset{0};
  std::vector<std::chrono::milliseconds> pauses;
};

}  // namespace fakes
