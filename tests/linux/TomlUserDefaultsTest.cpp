#include "linux/defaults/TomlUserDefaults.hpp"

#include <gmock/gmock.h>

#include <sys/stat.h>

#include <filesystem>
#include <functional>

#include "fakes/TemporaryFolder.hpp"
#include "linux/defaults/ChangeWatch.hpp"

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

TEST(ChangeWatch, NoticesEachChangeAndLittleElse) {
  const fakes::TemporaryFolder folder;
  const auto file = [&folder] { return folder / "a/b/kfyd.toml"; };
  platform_linux::ChangeWatch watch({file()});
  const auto isNoticed = [&watch](const std::function<void()> &change) {
    change();
    return watch.mayHaveChanged();
  };
  EXPECT_TRUE(isNoticed([] {})) << "the first time";
  EXPECT_TRUE(isNoticed([&] { std::filesystem::create_directory(folder / "a"); }));
  EXPECT_TRUE(isNoticed([&] { std::filesystem::create_directory(folder / "a/b"); }));
  for (int round = 0; round < 10'000; ++round) {
    ASSERT_TRUE(isNoticed([&] { folder.write("a/b/kfyd.toml", "n"); })) << round;
  }
  int times = 0;  // not never: others also make files in the folder for temporary ones
  for (int round = 0; round < 10'000; ++round) {
    times += watch.mayHaveChanged() ? 1 : 0;
  }
  EXPECT_LT(times, 1000);
  EXPECT_TRUE(isNoticed([&] { ::chmod(file().c_str(), 0600); }));
  EXPECT_TRUE(isNoticed([&] { std::filesystem::rename(folder / "a", folder / "c"); }));
  EXPECT_TRUE(isNoticed([&] { std::filesystem::rename(folder / "c", folder / "a"); }));
  EXPECT_TRUE(isNoticed([&] { std::filesystem::remove(file()); }));
  std::filesystem::create_symlink(folder / "elsewhere", file());
  EXPECT_TRUE(watch.mayHaveChanged() && watch.mayHaveChanged()) << "a link's target is not watched";
}

}  // namespace
