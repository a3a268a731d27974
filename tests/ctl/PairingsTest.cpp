#include "ctl/Pairings.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <sstream>
#include <string>
#include <vector>

#include "ctl/PairingHash.hpp"
#include "fakes/TemporaryFolder.hpp"
#include "support/HexString.hpp"

namespace {

using ctl::Pairing;
using ctl::PairingFile;

const std::string kDigits = "DEE1000000000000000000000000000000000ACE";
const Pairing kAda{"ada", *support::dataWithHexString(kDigits)};
const Pairing kNamedLikeNoOther{"jörg o'neil", Bytes(20, 7)};

// The hash that the daemon picks: the first 40 characters of the line behind the first section line
// that follows a header.
std::optional<Bytes> pickedByTheDaemon(const std::string &listing) {
  std::istringstream lines(listing);
  std::string line;
  bool hasHeader = false;
  bool hasSection = false;
  while (std::getline(lines, line)) {
    if (hasHeader && hasSection) {
      return support::dataWithHexString(line.substr(0, 40));
    }
    hasSection = hasSection || (hasHeader && line.find("Paired identities which are used for "
                                                       "authentication") != std::string::npos);
    hasHeader =
        hasHeader || line.find("SmartCard: com.corvane.keyferry.ctkextension") != std::string::npos;
  }
  return std::nullopt;
}

TEST(PairingListing, HoldsTheKeyThatTheDaemonLooksFor) {
  const std::vector<Pairing> pairings{kAda, kNamedLikeNoOther};
  EXPECT_EQ(pickedByTheDaemon(ctl::listingOf(pairings)), kAda.publicKeyHash);
  EXPECT_THAT(ctl::listingOf(pairings), testing::HasSubstr("\n" + kDigits + "\tada\n"));
  EXPECT_EQ(pickedByTheDaemon(ctl::listingOf({})), std::nullopt);
}

TEST(PairingFile, IsRootsAloneAndKeepsComments) {
  const fakes::TemporaryFolder folder;
  const PairingFile file(folder / "etc/pairings.toml");
  EXPECT_THAT(file.read(), testing::Optional(testing::IsEmpty()));
  ASSERT_TRUE(file.write(std::vector{kAda}));

  struct stat status{};
  ASSERT_EQ(::stat((folder / "etc/pairings.toml").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);

  folder.write("etc/pairings.toml", "# by hand\n" + folder.read("etc/pairings.toml"));
  ASSERT_TRUE(file.write(std::vector{kNamedLikeNoOther}));
  EXPECT_THAT(file.read(), testing::Optional(testing::ElementsAre(kNamedLikeNoOther)));
  EXPECT_THAT(folder.read("etc/pairings.toml"), testing::StartsWith("# by hand\n"));
}

struct BadFile {
  const char *name;
  std::string content;
  mode_t mode;
  const char *reason;
};

class PairingFileRefuses : public testing::TestWithParam<BadFile> {};

TEST_P(PairingFileRefuses, AFileAndSaysWhy) {
  const fakes::TemporaryFolder folder;
  folder.write("pairings.toml", GetParam().content);
  ASSERT_EQ(::chmod((folder / "pairings.toml").c_str(), GetParam().mode), 0);
  const PairingFile file(folder / "pairings.toml");
  Error error;
  EXPECT_FALSE(file.read(&error));
  EXPECT_THAT(error.description, testing::HasSubstr(GetParam().reason));
  EXPECT_FALSE(file.write(std::vector{kAda}));
  EXPECT_EQ(folder.read("pairings.toml"), GetParam().content);
}

INSTANTIATE_TEST_SUITE_P(
    Files, PairingFileRefuses,
    testing::Values(BadFile{"NoTOML", "\nada =\n", 0600, "line 2"},
                    BadFile{"HashTooShort", "ada = \"DEE1\"\n", 0600, "for \"ada\""},
                    BadFile{"NotAText", "ada = 5\n", 0600, "for \"ada\""},
                    BadFile{"OthersCanWrite", "ada = \"" + kDigits + "\"\n", 0602, "root alone"}),
    [](const auto &row) { return std::string(row.param.name); });

struct TypedHash {
  const char *name;
  std::string text;
  std::string digits;  // empty: refused
  const char *reason = "";
};

class PublicKeyHash : public testing::TestWithParam<TypedHash> {};

TEST_P(PublicKeyHash, IsReadAsPeoplePasteIt) {
  Error error;
  const auto hash = ctl::publicKeyHashFromText(GetParam().text, &error);
  EXPECT_EQ(support::hexString(hash.value_or(Bytes())), GetParam().digits);
  EXPECT_THAT(error.description, testing::HasSubstr(GetParam().reason));
}

INSTANTIATE_TEST_SUITE_P(
    Texts, PublicKeyHash,
    testing::Values(
        TypedHash{"Plain", kDigits, kDigits},
        TypedHash{"LowerCase", "dee1000000000000000000000000000000000ace", kDigits},
        TypedHash{"Prefix", "0x" + kDigits, kDigits},
        TypedHash{"Colons", "de:e1:00:00:00:00:00:00:00:00:00:00:00:00:00:00:00:00:0a:ce", kDigits},
        TypedHash{"Fingerprint", kDigits + kDigits.substr(16), "",
                  "is a certificate's fingerprint"},
        TypedHash{"NineteenBytes", "0x" + kDigits.substr(2), "", "has 38 digits"},
        TypedHash{"NoDigits", kDigits.substr(1) + "G", "", "is not hexadecimal"},
        TypedHash{"Empty", "", "", "has 0 digits"}),
    [](const auto &row) { return std::string(row.param.name); });

}  // namespace
