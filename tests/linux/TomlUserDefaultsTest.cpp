#include "linux/defaults/TomlUserDefaults.hpp"

#include <gmock/gmock.h>

#include "fakes/TemporaryFolder.hpp"

namespace {

using platform_linux::TomlUserDefaults;
using testing::ElementsAre;
using testing::HasSubstr;

class Defaults : public testing::Test {
 protected:
  std::optional<std::int64_t> number() { return defaults_.integer("kfyd", "n"); }

  fakes::TemporaryFolder folder_;
  std::vector<std::string> reports_;
  TomlUserDefaults defaults_{[this](const std::string &line) { reports_.push_back(line); },
                             folder_.path()};
};

TEST_F(Defaults, ChangesAreSeenAtOnceEvenWithinOneTickAndOfTheSameSize) {
  EXPECT_EQ(number(), std::nullopt);
  for (int round = 0; round < 200; ++round) {
    folder_.write("kfyd.toml", "n = " + std::to_string(round % 10));
    ASSERT_EQ(number(), round % 10) << "round " << round;
  }
  std::filesystem::remove(folder_ / "kfyd.toml");
  EXPECT_EQ(number(), std::nullopt);
  EXPECT_THAT(reports_, ElementsAre());
}

TEST_F(Defaults, FileThatDoesNotParseIsReportedOnceAndKeepsTheLastGoodValues) {
  folder_.write("kfyd.toml", "n = 1\n");
  EXPECT_EQ(number(), 1);
  folder_.write("kfyd.toml", "n = 2\n\noops\n");
  EXPECT_EQ(number(), 1);
  EXPECT_EQ(number(), 1);
  EXPECT_THAT(reports_, ElementsAre(testing::MatchesRegex((folder_ / "kfyd.toml, line 3: ") +
                                                          ".*expected '='.*")));
  folder_.write("kfyd.toml", "n = 4\n");
  EXPECT_EQ(number(), 4);
}

TEST_F(Defaults, FileThatOthersCanWriteCountsAsAbsentUntilTheyCannot) {
  for (const mode_t mode : {0664U, 0646U}) {
    folder_.write("kfyd.toml", "n = 1\n");
    ASSERT_EQ(::chmod((folder_ / "kfyd.toml").c_str(), 0644), 0);
    EXPECT_EQ(number(), 1);
    ASSERT_EQ(::chmod((folder_ / "kfyd.toml").c_str(), mode), 0);
    EXPECT_EQ(number(), std::nullopt);
    EXPECT_EQ(number(), std::nullopt);
    EXPECT_THAT(reports_, ElementsAre(HasSubstr("can be written")));
    reports_.clear();
  }
}

TEST_F(Defaults, GiveEachTypeWhatItAskedFor) {
  const std::tuple<const char *, bool, std::optional<std::string>, std::optional<std::int64_t>>
      kCases[] = {
          {"true", true, {}, {}},   {"false", false, {}, {}},     {"-7", true, {}, -7},
          {"0", false, {}, 0},      {"\"YES\"", true, "YES", {}}, {"\"yEs\"", true, "yEs", {}},
          {"\"1\"", true, "1", {}}, {"\"on\"", false, "on", {}},  {"1.0", false, {}, {}}};
  for (const auto &[value, boolean, text, integer] : kCases) {
    SCOPED_TRACE(value);
    folder_.write("other.toml", std::string("k = ") + value + "\n[table]\nn = 1\n");
    EXPECT_EQ(defaults_.boolean("other", "k").value_or(false), boolean);
    EXPECT_EQ(defaults_.text("other", "k"), text);
    EXPECT_EQ(defaults_.integer("other", "k"), integer);
    EXPECT_EQ(defaults_.integer("other", "n"), std::nullopt) << "that is the table's";
  }
}

}  // namespace
