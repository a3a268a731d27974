#include "linux/clock/SystemClock.hpp"

#include <gtest/gtest.h>

// A zone in the form of tzset(3), so that no zone files are needed.
TEST(SystemClock, OffsetFollowsTheZoneAndItsSummerTime) {
  const std::chrono::sys_days winter = std::chrono::year{2024} / 1 / 15;
  platform_linux::SystemClock clock;
  ::setenv("TZ", "NST3:30NDT,M3.2.0,M11.1.0", 1);
  EXPECT_EQ(clock.utcOffsetAt(winter), -std::chrono::minutes{210});
  EXPECT_EQ(clock.utcOffsetAt(winter + std::chrono::days(180)), -std::chrono::minutes{150});
  ::unsetenv("TZ");
}
