#include "client/CardMarker.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "base/Files.hpp"
#include "base/Root.hpp"

namespace client {
namespace {

TEST(CardMarker, IsAFileOfTheRightOwner) {
  const std::string path = base::rooted("/tmp/scinsert");
  const std::string other = base::rooted("/tmp/other");
  EXPECT_FALSE(findCardMarker());
  ASSERT_TRUE(base::replaceFile(other, {}, 0644));
  std::filesystem::create_symlink(other, path);
  EXPECT_FALSE(findCardMarker()) << "a link";
  std::filesystem::remove(path);
  std::filesystem::create_directory(path);
  EXPECT_FALSE(findCardMarker()) << "a folder";
  std::filesystem::remove(path);
  std::filesystem::rename(other, path);
  EXPECT_TRUE(findCardMarker() && findCardMarker() == findCardMarker());
  if (::geteuid() == 0) {
    ASSERT_EQ(::chown(path.c_str(), 1, 1), 0);
    EXPECT_FALSE(findCardMarker()) << "somebody else's";
    ASSERT_EQ(::chown(base::root().c_str(), 1, 1), 0);
    EXPECT_TRUE(findCardMarker()) << "whose root it is";
    ASSERT_EQ(::chown(base::root().c_str(), 0, 0), 0);
  }
  std::filesystem::remove(path);
}

}  // namespace
}  // namespace client
