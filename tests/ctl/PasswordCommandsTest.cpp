#include "ctl/RunningTools.hpp"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

using PasswordCommands = Tools;

TEST_F(PasswordCommands, PrintAPasswordOnlyWhenAskedFor) {
  sandboxedRoot().write("pw", "s3same\n");
  sandboxedRoot().write("accented", "sésame\n");
  const auto set = [](const std::string &file) {
    return kfyctl({"password", "set", "ann", "--password-file", sandboxedRoot() / file});
  };
  const std::vector<std::string> get = {"password", "get", "ann"};
  const std::vector<std::string> show = {"password", "get", "ann", "--show"};
  EXPECT_THAT(kfyctl(get).notes, HasSubstr("try: kfyctl password set ann"));
  EXPECT_EQ(set("pw").output, "");
  EXPECT_THAT(kfyctl(get).output, AllOf(HasSubstr("com.corvane.hdq.apns"), Not(HasSubstr("s3"))));
  EXPECT_EQ(kfyctl(show).output, "s3same\n");
  EXPECT_THAT(kfyctl({"password", "get", "ann", "--show", "--json"}).output,
              HasSubstr("\"password\":\"s3same\"}"));
  EXPECT_THAT(set("accented").notes, HasSubstr("ASCII"));
  EXPECT_EQ(kfyctl(show).output, "s3same\n") << "nothing was changed";
  const ToolRun made = kfyctl({"password", "set", "ann", "--random", "--show"});
  EXPECT_EQ(made.output.size(), 16U);
  EXPECT_EQ(kfyctl(show).output, made.output);
  EXPECT_EQ(kfyctl({"password", "get", "ann", "--service", "other", "--show"}).status, 1);
  EXPECT_EQ(kfyctl({"password", "delete", "ann"}).status, 0);
  EXPECT_EQ(kfyctl({"password", "delete", "ann"}).status, 1);
  EXPECT_EQ(kfyctl({"password", "set", "ann", "s3same"}).status, 2) << "never in an argument";
}

}  // namespace
