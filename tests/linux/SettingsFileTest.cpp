#include "linux/defaults/SettingsFile.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "base/Bytes.hpp"
#include "base/Files.hpp"
#include "fakes/TemporaryFolder.hpp"

namespace {

using platform_linux::readSettings;
using platform_linux::SettingsFile;
using platform_linux::SettingValue;
using platform_linux::withSetting;

using Change = std::optional<SettingValue>;

const std::string kText =
    "# limits\n"
    "maxFrameBytes = 10 # bytes\n"
    "  \"grüße\"=\"a # b\"\t# said\n"
    "\n"
    "long = \"\"\"\n"
    "maxFrameBytes = 3\n"
    "\"\"\"\n"
    "list = [1,\n"
    "  2] # two\n"
    "# the table's\n"
    "[table]\n"
    "maxFrameBytes = 4\n";

struct EditCase {
  const char *name;
  std::string before;
  std::string key;
  Change value;
  std::optional<std::string> after;
};

std::string with(std::string text, const std::string &old, const std::string &fresh) {
  return text.replace(text.find(old), old.size(), fresh);
}

class Edit : public testing::TestWithParam<EditCase> {};

TEST_P(Edit, ChangesOneLineOrRefuses) {
  const auto &[name, before, key, value, after] = GetParam();
  Error error;
  EXPECT_EQ(withSetting(before, key, value, &error), after) << error.description;
  EXPECT_EQ(error.description.empty(), after.has_value());
}

INSTANTIATE_TEST_SUITE_P(
    Texts, Edit,
    testing::Values(
        EditCase{"Number", kText, "maxFrameBytes", std::int64_t{-2},
                 with(kText, "= 10 #", "= -2 #")},
        EditCase{"QuotedKeyAndText", kText, "grüße", std::string("ü\"\\\n"),
                 with(kText, "\"a # b\"", "\"ü\\\"\\\\\\u000A\"")},
        EditCase{"OtherType", kText, "grüße", true, with(kText, "\"a # b\"", "true")},
        EditCase{"ValueOfSeveralLines", kText, "long", false,
                 with(kText, "\"\"\"\nmaxFrameBytes = 3\n\"\"\"", "false")},
        EditCase{"NewKeyStaysOutOfTheTable", kText, "new", true,
                 with(kText, "# two\n", "# two\nnew = true\n")},
        EditCase{"NewKeyInATextOfTables", "[t]\nn = 1\n", "n", std::int64_t{2},
                 "n = 2\n[t]\nn = 1\n"},
        EditCase{"NewKeyBehindAnUnfinishedLine", "a = 1", "b c", true, "a = 1\n\"b c\" = true\n"},
        EditCase{"CarriageReturnsStay", "a = 1\r\nb = 2\r\n", "a", true, "a = true\r\nb = 2\r\n"},
        EditCase{
            "Removed", kText, "maxFrameBytes", {}, with(kText, "maxFrameBytes = 10 # bytes\n", "")},
        EditCase{
            "SeveralLinesRemoved", kText, "list", {}, with(kText, "list = [1,\n  2] # two\n", "")},
        EditCase{"RemovedThoughAbsent", kText, "absent", {}, kText},
        EditCase{"TableIsNoSetting", kText, "table", true, {}},
        EditCase{"DottedKeyIsNoSetting", "a.b = 1\na.c = 2\n", "a", {}, {}},
        EditCase{"NotUTF8", "a = 1\n", "a", std::string("\xFF"), {}},
        EditCase{"DoesNotParse", "a = 1\nb\n", "a", true, {}}),
    [](const auto &row) { return std::string(row.param.name); });

TEST(SettingsFile, MissingFileIsMadeReadableForAllAndAnExistingOneKeepsItsMode) {
  const fakes::TemporaryFolder folder;
  const mode_t mask = ::umask(077);
  const SettingsFile file(folder / "etc/keyferry/kfyd.toml");
  EXPECT_TRUE(file.set("a", true));
  ::umask(mask);
  EXPECT_EQ(folder.read("etc/keyferry/kfyd.toml"), "a = true\n");
  struct stat status{};
  ASSERT_EQ(::stat((folder / "etc/keyferry").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0755U);
  ASSERT_EQ(::stat((folder / "etc/keyferry/kfyd.toml").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0644U);

  ASSERT_EQ(::chmod((folder / "etc/keyferry/kfyd.toml").c_str(), 0600), 0);
  ASSERT_EQ(::symlink("etc/keyferry/kfyd.toml", (folder / "link").c_str()), 0);
  EXPECT_TRUE(SettingsFile(folder / "link").remove("a"));
  EXPECT_EQ(folder.read("etc/keyferry/kfyd.toml"), "");
  ASSERT_EQ(::stat((folder / "etc/keyferry/kfyd.toml").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST(SettingsFile, ListsInTheOrderOfLinesOrSaysWhereItFails) {
  const fakes::TemporaryFolder folder;
  const SettingsFile file(folder / "kfyd.toml");
  EXPECT_TRUE(file.readAll().value().empty());
  folder.write("kfyd.toml", "z = 1\na = \"x\"\nd = 1.5\nb = true\n");
  const auto settings = file.readAll().value();
  ASSERT_EQ(settings.size(), 3);
  EXPECT_EQ(settings[0].key, "z");
  EXPECT_EQ(settings[1].value, SettingValue(std::string("x")));
  EXPECT_EQ(settings[2].key, "b");
  folder.write("kfyd.toml", "z = 1\na = [\n");
  Error error;
  EXPECT_FALSE(file.readAll(&error));
  EXPECT_EQ(error.description.find(folder / "kfyd.toml, line 2: "), 0) << error.description;
  EXPECT_FALSE(file.set("z", true, &error));
}

}  // namespace
