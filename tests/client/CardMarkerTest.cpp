#include "client/CardMarker.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include "base/Bytes.hpp"
#include "base/Files.hpp"

namespace client {
namespace {

TEST(CardMarker, IsAFileOfTheRightOwnerAndAnotherOnceItIsMadeAnew) {
  const auto write = [] {
    ASSERT_TRUE(base::replaceFile(cardMarkerPath(), base::viewOf("x"), 0644));
  };
  EXPECT_FALSE(findCardMarker());
  write();
  const auto first = findCardMarker();
  ASSERT_TRUE(first);
  EXPECT_TRUE(findCardMarker() == first);
  write();
  EXPECT_FALSE(findCardMarker() == first);
  if (::geteuid() == 0) {
    ASSERT_EQ(::chown(cardMarkerPath().c_str(), 1, 1), 0);
    EXPECT_FALSE(findCardMarker());
  }
}

}  // namespace
}  // namespace client
