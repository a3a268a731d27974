#include "client/Backoff.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace client {
namespace {

TEST(Backoff, DoublesUpToFourSecondsAndStartsOver) {
  Backoff backoff;
  std::vector<long> waits;
  for (int count = 0; count < 5; ++count) {
    waits.push_back(backoff.next(0).count());
  }
  EXPECT_EQ(waits, (std::vector<long>{1000, 2000, 4000, 4000, 4000}));
  EXPECT_EQ(backoff.next(0.5).count(), 3500);
  backoff.reset();
  EXPECT_EQ(backoff.next(0).count(), 1000);
}

}  // namespace
}  // namespace client
