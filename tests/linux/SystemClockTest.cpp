#include "linux/clock/SystemClock.hpp"

#include <gtest/gtest.h>

using std::chrono::sys_days;
using std::chrono::year;

// Zones in the form of tzset(3), so that no zone files are needed.
TEST(SystemClock, OffsetFollowsTheZoneAndItsSummerTime) {
  const sys_days winter = year{2024} / 1 / 15;
  const sys_days summer = year{2024} / 7 / 15;
  platform_linux::SystemClock clock;
  ::setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
  EXPECT_EQ(clock.utcOffsetAt(winter), std::chrono::hours{1});
  EXPECT_EQ(clock.utcOffsetAt(summer), std::chrono::hours{2});
  ::setenv("TZ", "NST3:30", 1);
  EXPECT_EQ(clock.utcOffsetAt(winter), -std::chrono::minutes{210});
  ::unsetenv("TZ");
}
