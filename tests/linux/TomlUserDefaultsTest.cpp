#include "linux/defaults/TomlUserDefaults.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "fakes/TemporaryFolder.hpp"

namespace {

using platform_linux::TomlUserDefaults;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class Defaults : public testing::Test {
 protected:
  std::optional<std::int64_t> number() { return defaults_.integer("kfyd", "n"); }

  fakes::TemporaryFolder folder_;
  std::vector<std::string> reports_;
  TomlUserDefaults defaults_{[this](const std::string &line) {
                               reports_.push_back(line);
                               // as the log front ends do before they write the line
                               seenByReporter_ = defaults_.integer("kfyd", "n");
                             },
                             folder_.path()};
  std::optional<std::int64_t> seenByReporter_;
};

TEST_F(Defaults, ChangesAreSeenAtOnceEvenWithinOneTickAndOfTheSameSize) {
  EXPECT_EQ(number(), std::nullopt);
  for (int round = 0; round < 200; ++round) {
    folder_.write("kfyd.toml", "n = " + std::to_string(round % 10));
    ASSERT_EQ(number(), round % 10) << "round " << round;
  }
  std::filesystem::remove(folder_ / "kfyd.toml");
  EXPECT_EQ(number(), std::nullopt);
  EXPECT_THAT(reports_, IsEmpty());
}

TEST_F(Defaults, AreLookedAtOnceWithinAMoment) {
  std::uint64_t moment = 0;
  TomlUserDefaults defaults(nullptr, folder_.path(), [&] { return moment; });
  int written = 0;
  for (const auto &[now, seen] : {std::pair{1, 1}, {1, 1}, {2, 3}, {0, 4}, {0, 5}}) {
    moment = static_cast<std::uint64_t>(now);
    folder_.write("kfyd.toml", "n = " + std::to_string(++written));
    EXPECT_EQ(defaults.integer("kfyd", "n"), seen);
  }
}

TEST_F(Defaults, WhatIsWrongInAFileIsReportedOncePerChange) {
  const auto check = [](std::string_view domain, const auto &settings) {
    return std::vector<std::string>(settings.size(), std::string(domain));
  };
  TomlUserDefaults defaults([&](const std::string &line) { reports_.push_back(line); },
                            folder_.path(), /*moment=*/nullptr, check);
  for (const char *text : {"n = 1\nm = []\n", "n = 1\nm = []\n", "n = 3\n"}) {
    folder_.write("kfyd.toml", text);
    EXPECT_EQ(defaults.text("kfyd", "n"), std::nullopt);
  }
  EXPECT_EQ(reports_, std::vector<std::string>(3, (folder_ / "kfyd.toml") + ": kfyd"));
}

TEST_F(Defaults, FileThatDoesNotParseIsReportedOnceAndKeepsTheLastGoodValues) {
  folder_.write("kfyd.toml", "n = 1\n");
  EXPECT_EQ(number(), 1);
  folder_.write("kfyd.toml", "n = 2\n\noops\n");
  EXPECT_EQ(number(), 1);
  EXPECT_EQ(number(), 1);
  EXPECT_THAT(reports_, ElementsAre(AllOf(StartsWith(folder_ / "kfyd.toml, line 3: "),
                                          HasSubstr("expected '='"))));
  EXPECT_EQ(seenByReporter_, 1);
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
  struct Case {
    const char *value;
    bool boolean;
    std::optional<std::string> text;
    std::optional<std::int64_t> integer;
  };
  const Case kCases[] = {
      {"true", true, {}, {}},   {"false", false, {}, {}},     {"-7", true, {}, -7},
      {"0", false, {}, 0},      {"\"YES\"", true, "YES", {}}, {"\"yEs\"", true, "yEs", {}},
      {"\"1\"", true, "1", {}}, {"\"on\"", false, "on", {}},  {"1.0", false, {}, {}}};
  for (const Case &row : kCases) {
    SCOPED_TRACE(row.value);
    folder_.write("other.toml", std::string("k = ") + row.value + "\n[table]\nn = 1\n");
    EXPECT_EQ(defaults_.boolean("other", "k").value_or(false), row.boolean);
    EXPECT_EQ(defaults_.text("other", "k"), row.text);
    EXPECT_EQ(defaults_.integer("other", "k"), row.integer);
    EXPECT_EQ(defaults_.integer("other", "n"), std::nullopt) << "that is the table's";
  }
}

}  // namespace
