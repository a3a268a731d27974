#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "ctl/RunningTools.hpp"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

// Makes a keychain, files with passwords, and NAME.p12 files by the library's own tool.
class KeychainCommands : public testing::Test {
 protected:
  KeychainCommands() {
    emptyTheRoot();
    sandboxedRoot().write("pw", "s3same\n");
    sandboxedRoot().write("accented", "sésame\n");
  }
  static std::string at(const std::string &name) { return sandboxedRoot() / name; }

  static void makePackage(const std::string &name, const std::string &kind) {
    const std::string command = "cd " + sandboxedRoot().path() + " && openssl req -x509 -newkey " +
                                kind + " -noenc -subj /CN=" + name +
                                " -keyout key.pem -out crt.pem 2>/dev/null && openssl pkcs12 " +
                                "-export -inkey key.pem -in crt.pem -passout file:pw -out " + name +
                                ".p12";
    ASSERT_EQ(std::system(command.c_str()), 0);
  }
};

TEST_F(KeychainCommands, PrintAPasswordOnlyWhenAskedFor) {
  const std::vector<std::string> get = {"password", "get", "ann"};
  const std::vector<std::string> show = {"password", "get", "ann", "--show"};
  EXPECT_THAT(kfyctl(get).notes, HasSubstr("try: kfyctl password set ann"));
  EXPECT_EQ(kfyctl({"password", "set", "ann", "--password-file", at("pw")}).output, "");
  EXPECT_THAT(kfyctl(get).output, AllOf(HasSubstr("com.corvane.hdq.apns"), Not(HasSubstr("s3"))));
  EXPECT_EQ(kfyctl(show).output, "s3same\n");
  EXPECT_THAT(kfyctl({"password", "get", "ann", "--show", "--json"}).output,
              HasSubstr("\"password\":\"s3same\"}"));
  EXPECT_THAT(kfyctl({"password", "set", "ann", "--password-file", at("accented")}).notes,
              HasSubstr("ASCII"));
  EXPECT_EQ(kfyctl(show).output, "s3same\n") << "nothing was changed";
  const ToolRun made = kfyctl({"password", "set", "ann", "--random", "--show"});
  EXPECT_EQ(made.output.size(), 16U);
  EXPECT_EQ(kfyctl(show).output, made.output);
  EXPECT_EQ(kfyctl({"password", "get", "ann", "--service", "other", "--show"}).status, 1);
  EXPECT_EQ(kfyctl({"password", "delete", "ann"}).status, 0);
  EXPECT_EQ(kfyctl({"password", "delete", "ann"}).status, 1);
  EXPECT_EQ(kfyctl({"password", "set", "ann", "s3same"}).status, 2) << "never in an argument";
}

TEST_F(KeychainCommands, ImportAPackageAndLeaveTheUsersFile) {
  makePackage("host", "rsa:2048");
  const ToolRun first =
      kfyctl({"identity", "import", at("host.p12"), "--password-file", at("pw"), "--json"});
  EXPECT_THAT(first.output, HasSubstr("\"label\":\"host\"")) << first.notes;
  EXPECT_TRUE(std::filesystem::exists(at("host.p12")));
  const ToolRun again = kfyctl({"identity", "import", at("host.p12"), "--password-file", at("pw")});
  EXPECT_EQ(again.status, 0);
  EXPECT_THAT(again.notes, HasSubstr("already"));
  EXPECT_THAT(
      kfyctl({"identity", "import", at("host.p12"), "--password-file", at("accented")}).notes,
      HasSubstr("the password does not fit"));
  EXPECT_EQ(kfyctl({"identity", "import", at("host.p12"), "--label", "x"}).status, 2);
  for (const auto &entry : std::filesystem::directory_iterator(at("var/lib/keyferry"))) {
    EXPECT_EQ(entry.path().filename(), "keychain.db") << "no copy is left";
  }
}

TEST_F(KeychainCommands, SayWhyAKeyIsTooLargeAndHowToGoOn) {
  makePackage("big", "rsa:3072");
  const ToolRun run = kfyctl({"identity", "import", at("big.p12"), "--password-file", at("pw")});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.notes, AllOf(HasSubstr("2048 bits"), HasSubstr("import " + at("big.p12.pem"))));
  EXPECT_TRUE(std::filesystem::exists(at("big.p12")));
}

struct Damage {
  const char *what;
  void (*toKeychain)(const std::string &path);
  const char *next;
};

TEST_F(KeychainCommands, NameWhatIsWrongWithTheKeychainAndWhatToDo) {
  const std::string path = at("var/lib/keyferry/keychain.db");
  const Damage damages[] = {
      {"mode 0644", [](const std::string &file) { ::chmod(file.c_str(), 0644); },
       "sudo chmod 0600"},
      {"newer version",
       [](const std::string &) {
         std::fstream(sandboxedRoot() / "var/lib/keyferry/keychain.db",
                      std::ios::in | std::ios::out | std::ios::binary)
                 .seekp(60)
             << std::string("\0\0\0\x63", 4);  // the user version (sqlite.org/fileformat2.html)
       },
       "kfyctl --version"},
      {"malformed", [](const std::string &file) { std::filesystem::resize_file(file, 6000); },
       ".damaged"},
      {"is empty", [](const std::string &file) { std::filesystem::resize_file(file, 0); },
       ".damaged"},
  };
  for (const Damage &damage : damages) {
    emptyTheRoot();
    ASSERT_EQ(kfyctl({"password", "set", "ann", "--random"}).status, 0);
    damage.toKeychain(path);
    EXPECT_THAT(kfyctl({"status"}).output, AllOf(HasSubstr(damage.what), HasSubstr(damage.next)));
  }
}

}  // namespace
