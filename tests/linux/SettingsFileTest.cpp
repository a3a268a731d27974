#include "linux/defaults/SettingsFile.hpp"

#include <gtest/gtest.h>

namespace {

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

std::string with(const std::string &old, const std::string &fresh) {
  return std::string(kText).replace(kText.find(old), old.size(), fresh);
}

TEST(SettingsText, ChangesInOneLineOrIsRefused) {
  const std::tuple<std::string, const char *, std::optional<platform_linux::SettingValue>,
                   std::optional<std::string>>
      kCases[] = {
          {kText, "maxFrameBytes", std::int64_t{-2}, with("= 10 #", "= -2 #")},
          {kText, "grüße", std::string("ü\"\\\n"), with("\"a # b\"", "\"ü\\\"\\\\\\u000A\"")},
          {kText, "long", false, with("\"\"\"\nmaxFrameBytes = 3\n\"\"\"", "false")},
          {kText, "new", true, with("# two\n", "# two\nnew = true\n")},  // not in the table
          {"[t]\nn = 1\n", "n", std::int64_t{2}, "n = 2\n[t]\nn = 1\n"},
          {"a = 1\r\nb = 2\r\n", "a", true, "a = true\r\nb = 2\r\n"},
          {kText, "maxFrameBytes", {}, with("maxFrameBytes = 10 # bytes\n", "")},
          {kText, "list", {}, with("list = [1,\n  2] # two\n", "")},
          {kText, "table", true, {}},                 // is no setting
          {"a.b = 1\na.c = 2\n", "a", {}, {}},        // nor is this
          {"a = 1\n", "a", std::string("\xFF"), {}},  // no UTF-8
          {"a = 1\nb\n", "a", true, {}},              // does not parse
      };
  for (const auto &[before, key, value, after] : kCases) {
    SCOPED_TRACE(before + "----- " + key);
    Error error;
    EXPECT_EQ(platform_linux::withSetting(before, key, value, &error), after) << error.description;
    EXPECT_EQ(error.description.empty(), after.has_value());
  }
}

}  // namespace
