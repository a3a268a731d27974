#include "ctl/SecretInput.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <string>

#include "fakes/TemporaryFolder.hpp"

namespace {

TEST(SecretInput, IsTheFirstLineOfAFile) {
  const fakes::TemporaryFolder folder;
  for (const char *const content : {"sésam ", "sésam \n", "sésam \r\nsecond\n"}) {
    folder.write("password", content);
    const auto secret = ctl::secretFromFile(folder / "password");
    ASSERT_TRUE(secret);
    EXPECT_EQ(secret->reveal(), "sésam ") << content;
  }
  Error error;
  EXPECT_FALSE(ctl::secretFromFile(folder / "absent", &error));
  EXPECT_NE(error.description.find("absent"), std::string::npos);
}

TEST(SecretInput, IsTheFirstLineFromADescriptor) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  ASSERT_EQ(::write(ends[1], "sesam\nx", 7), 7);
  ::close(ends[1]);
  EXPECT_EQ(ctl::secretFromDescriptor(ends[0]).value().reveal(), "sesam");
  ::close(ends[0]);
  EXPECT_FALSE(ctl::secretFromDescriptor(ends[0]));
}

}  // namespace
