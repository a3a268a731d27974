#include "ctl/Pairings.hpp"

#include <gmock/gmock.h>

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
  const fakes::TemporaryFolder folder;
  const PairingFile file(folder / "pairings.toml");
  for (const auto &[content, mode, reason] :
       {std::tuple(std::string("\nada =\n"), 0600U, "line 2"),
        {"ada = \"DEE1\"\n", 0600U, "for \"ada\""},
        {"ada = 5\n", 0600U, "for \"ada\""},
        {"ada = \"" + kDigits + "\"\n", 0602U, "root alone"}}) {
    folder.write("pairings.toml", content);
    ASSERT_EQ(::chmod((folder / "pairings.toml").c_str(), mode), 0);
    Error error;
    EXPECT_FALSE(file.read(&error)) << content;
    EXPECT_THAT(error.description, testing::HasSubstr(reason));
    EXPECT_FALSE(file.write(std::vector{kAda})) << content;
    EXPECT_EQ(folder.read("pairings.toml"), content);
  }
}

}  // namespace
