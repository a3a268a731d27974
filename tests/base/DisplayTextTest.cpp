#include "base/DisplayText.hpp"

#include <gtest/gtest.h>

namespace base {
namespace {

TEST(DisplayText, HoldsNothingThatATerminalObeys) {
  const std::tuple<std::string, const char *, const char *> kCases[] = {
      {"Zoë, \"語\" 👍\u061B\u200D\u202F\u2065", "Zoë, \"語\" 👍\u061B\u200D\u202F\u2065",
       "Zoë, \"語\" 👍\u061B\u200D\u202F\u2065"},
      {std::string("\0\t\n\x1B[2J\x1F", 8), "???\?[2J?", nullptr},
      {"\x7F\u0080\u009B\u009F\u00A0", "????\u00A0", "\\u007f\\u0080\\u009b\\u009f\u00A0"},
      {"\u061C\u200E\u200F\u2028\u2029", "?????", "\\u061c\\u200e\\u200f\\u2028\\u2029"},
      {"\u202A\u202E\u202C\u202C\u2066\u2069", "??????",
       "\\u202a\\u202e\\u202c\\u202c\\u2066\\u2069"},
      {"a\xFF\xC0\x80\xED\xA0\x80 \xF0\x9F\x91", "a?????? ???",
       "a\\ufffd\\ufffd\\ufffd\\ufffd\\ufffd\\ufffd \\ufffd\\ufffd\\ufffd"},
      {"{\n}\n", "{?}?", "{\n}\n"}};
  for (const auto &[text, shown, json] : kCases) {
    EXPECT_EQ(displayText(text), shown);
    EXPECT_EQ(displayText(SecretText(text)).reveal(), shown);
    EXPECT_TRUE(json == nullptr || textOf(displayJSON(viewOf(text))) == json) << shown;
  }
}

}  // namespace
}  // namespace base
