#include "client/Backoff.hpp"

#include <gtest/gtest.h>

namespace client {
namespace {

TEST(Backoff, DoublesUpToFourSecondsAndStartsOver) {
  Backoff backoff;
  for (const long wait : {1000, 2000, 4000, 4000, 4000}) {
    EXPECT_EQ(backoff.next(0).count(), wait);
  }
  EXPECT_EQ(backoff.next(0.5).count(), 3500);
  backoff.reset();
  EXPECT_EQ(backoff.next(0).count(), 1000);
}

}  // namespace
}  // namespace client
