#include "ctl/Pairings.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "encodings/HexString.hpp"
#include "fakes/TemporaryFolder.hpp"

namespace {

using ctl::Pairing;
using ctl::PairingFile;

const std::string kDigits = "DEE1000000000000000000000000000000000ACE";
const Pairing kAda{"ada", *encodings::dataWithHexString(kDigits)};
const Pairing kNamedLikeNoOther{"jörg o'neil", Bytes(20, 7)};

TEST(PairingFile, IsRootsAloneAndKeepsComments) {
  const fakes::TemporaryFolder folder;
  const PairingFile file(folder / "etc/pairings.toml");
  EXPECT_THAT(file.read(), testing::Optional(testing::IsEmpty()));
  ASSERT_TRUE(file.write(std::vector{kAda}));
  EXPECT_EQ(folder.modeOf("etc/pairings.toml"), 0600U);
  folder.write("etc/pairings.toml", "# by hand\n" + folder.read("etc/pairings.toml"));
  ASSERT_TRUE(file.write(std::vector{kNamedLikeNoOther}));
  EXPECT_THAT(file.read(), testing::Optional(testing::ElementsAre(kNamedLikeNoOther)));
  EXPECT_THAT(folder.read("etc/pairings.toml"), testing::StartsWith("# by hand\n"));
}

TEST(PairingFile, IsRefusedWithTheReasonAndLeftAsItIs) {
  struct Case {
    std::string content;
    mode_t mode;
    const char *reason;
  };
  const fakes::TemporaryFolder folder;
  const PairingFile file(folder / "pairings.toml");
  for (const Case &row :
       {Case{"\nada =\n", 0600, "line 2"}, Case{"ada = \"DEE1\"\n", 0600, "for \"ada\""},
        Case{"ada = 5\n", 0600, "for \"ada\""},
        Case{"ada = \"" + kDigits + "\"\n", 0602, "root alone"}}) {
    folder.write("pairings.toml", row.content);
    ASSERT_EQ(::chmod((folder / "pairings.toml").c_str(), row.mode), 0);
    Error error;
    EXPECT_FALSE(file.read(&error)) << row.content;
    EXPECT_THAT(error.description, testing::HasSubstr(row.reason));
    EXPECT_FALSE(file.write(std::vector{kAda})) << row.content;
    EXPECT_EQ(folder.read("pairings.toml"), row.content);
  }
}

}  // namespace
