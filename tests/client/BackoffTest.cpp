#include "client/Backoff.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace client {
namespace {

TEST(Backoff, DoublesUpToAMinuteAndStartsOver) {
  Backoff backoff;
  std::vector<long> waits;
  for (int count = 0; count < 8; ++count) {
    waits.push_back(backoff.next(0).count());
  }
  EXPECT_EQ(waits, (std::vector<long>{1000, 2000, 4000, 8000, 16000, 32000, 60000, 60000}));
  EXPECT_EQ(backoff.next(0.5).count(), 52500);
  backoff.reset();
  EXPECT_EQ(backoff.next(0).count(), 1000);
}

}  // namespace
}  // namespace client
