#include "ctl/Kfyctl.hpp"

#include <regex>

#include "ctl/RunningTools.hpp"
#include "encodings/HexString.hpp"
#include "fakes/MadeKeys.hpp"

namespace {

using testing::HasSubstr;

const std::string kIdentitySettings = "etc/keyferry/com.corvane.kfyd.toml";

class Kfyctl : public Tools {
 protected:
  // The hash of a new identity.
  static std::string created(const std::string &name) {
    const ToolRun run = kfyctl({"identity", "create", "--common-name", name});
    EXPECT_EQ(run.status, 0) << run.notes;
    return run.output.substr(0, run.output.find('\n'));
  }
};

TEST_F(Kfyctl, NamesAnIdentityByItsLabelAsStoredOrByItsHash) {
  const std::string first = created("Box");
  const std::string second = created("Box");
  EXPECT_THAT(kfyctl({"identity", "use", "Box"}).notes, HasSubstr("2 identities"));
  const mode_t before = ::umask(077);
  EXPECT_EQ(kfyctl({"identity", "use", "0x" + second}).status, 0);
  ::umask(before);
  EXPECT_EQ(kfyctl({"identity", "use", "box"}).status, 1);
  EXPECT_EQ(sandboxedRoot().read(kIdentitySettings),
            "ssl_certificate_sha1_hash = \"" + second + "\"\n");
  EXPECT_EQ(sandboxedRoot().modeOf("etc/keyferry/server.pem"), 0644U);
  const std::string pinned = sandboxedRoot().read("etc/keyferry/server.pem");
  EXPECT_EQ(
      encodings::hexString(crypto::Certificate::allFromPEM(base::viewOf(pinned)).at(0).sha1()),
      second);
  EXPECT_THAT(
      kfyctl({"identity", "show", "--json"}).output,
      testing::AllOf(HasSubstr("\"sha1\":\"" + second + "\""), HasSubstr("\"inUse\":true")));

  EXPECT_EQ(kfyctl({"identity", "delete", second}).status, 1) << "kfyd could not start without it";
  EXPECT_EQ(kfyctl({"identity", "delete", first}).status, 0);
  EXPECT_EQ(kfyctl({"identity", "use", "Box"}).status, 0);
  EXPECT_EQ(kfyctl({"identity", "delete", second, "--force"}).status, 0);
  EXPECT_EQ(kfyctl({"identity", "list"}).output, "");
}

TEST_F(Kfyctl, SetsUpAnIdentityOnceAndChoosesNoneOfSeveral) {
  const auto setUp = [] { return kfyctl({"setup", "--common-name", "box.example"}); };
  sandboxedRoot().write("profile", "maxPending = 7\n");
  std::filesystem::create_directories(sandboxedRoot() / "usr/share/keyferry");
  std::filesystem::rename(sandboxedRoot() / "profile",
                          sandboxedRoot() / "usr/share/keyferry/kfyd.toml");
  const ToolRun first = setUp();
  EXPECT_EQ(kfyctl({"defaults", "read", "maxPending"}).output, "7\n");
  EXPECT_EQ(kfyctl({"defaults", "write", "maxPending", "8"}).status, 0);
  EXPECT_EQ(first.output.size(), 96U);
  EXPECT_THAT(kfyctl({"identity", "show"}).output, HasSubstr(first.output));
  EXPECT_EQ(setUp().output, first.output);
  EXPECT_THAT(kfyctl({"identity", "list"}).output, testing::EndsWith(" * box.example\n"));
  std::filesystem::remove(sandboxedRoot() / kIdentitySettings);
  EXPECT_EQ(setUp().output, first.output) << "the only one";
  EXPECT_EQ(kfyctl({"defaults", "read", "maxPending"}).output, "8\n");
  (void)created("Box");
  EXPECT_EQ(setUp().output, first.output) << "it is used";
  std::filesystem::remove(sandboxedRoot() / kIdentitySettings);
  EXPECT_EQ(setUp().status, 1);
}

TEST_F(Kfyctl, ImportsWhatIsThereAlreadyAlikeFromBothKindsOfFile) {
  const crypto::Identity box = fakes::makeIdentity("Box");
  const std::string hash = encodings::hexString(box.certificate.sha1());
  sandboxedRoot().write("box.pem", fakes::pemOf(box));
  sandboxedRoot().write("box.p12", fakes::encoded(fakes::makePackage(box, /*password=*/"")));
  const auto import = [](const char *file, std::vector<std::string> more) {
    more.insert(more.begin(), {"identity", "import", sandboxedRoot() / file});
    return kfyctl(more);
  };
  const std::string facts = "{\"sha1\":\"" + hash + "\",\"label\":\"Box\",\"added\":";
  for (const char *first : {"box.pem", "box.p12"}) {
    EXPECT_EQ(import(first, {"--json"}).output, facts + "true}\n") << first;
    for (const char *again : {"box.pem", "box.p12"}) {
      const ToolRun run = import(again, {});
      EXPECT_EQ(run.output, hash + "\n") << again << run.status;
      EXPECT_THAT(run.notes, HasSubstr("\"Box\" is in the keychain already")) << again;
      EXPECT_EQ(import(again, {"--json"}).output, facts + "false}\n") << again;
    }
    EXPECT_EQ(kfyctl({"identity", "delete", hash}).status, 0);
  }
}

TEST_F(Kfyctl, ShowsNoControlsOfALabelAndKeepsThemInJSON) {
  const std::string label = "a\x1B[2J\u009B\nb";
  EXPECT_EQ(kfyctl({"identity", "create", "--common-name", "host", "--label", label}).status, 0);
  EXPECT_THAT(kfyctl({"identity", "show", label}).output, HasSubstr("          a?[2J??b\n"));
  EXPECT_THAT(kfyctl({"identity", "list", "--json"}).output, HasSubstr(R"(a\u001b[2J\u009b\nb")"));
}

TEST_F(Kfyctl, WritesReadsAndDeletesASetting) {
  const std::string path = "etc/keyferry/kfyd.toml";
  const mode_t before = ::umask(077);
  EXPECT_EQ(kfyctl({"defaults", "write", "debugLogging", "On"}).status, 0);
  ::umask(before);
  EXPECT_EQ(sandboxedRoot().read(path), "debugLogging = true\n");
  EXPECT_EQ(sandboxedRoot().modeOf("etc/keyferry"), 0755U);
  EXPECT_EQ(sandboxedRoot().modeOf(path), 0644U);
  EXPECT_EQ(kfyctl({"defaults", "read", "debugLogging"}).output, "true\n");
  std::filesystem::rename(sandboxedRoot() / path, sandboxedRoot() / "linked");
  ASSERT_EQ(::chmod((sandboxedRoot() / "linked").c_str(), 0600), 0);
  ASSERT_EQ(::symlink("../../linked", (sandboxedRoot() / path).c_str()), 0);
  EXPECT_EQ(kfyctl({"defaults", "delete", "debugLogging"}).status, 0);
  EXPECT_EQ(sandboxedRoot().read("linked"), "");
  EXPECT_EQ(sandboxedRoot().modeOf("linked"), 0600U);
  EXPECT_EQ(kfyctl({"defaults", "read", "pairingToolSeconds"}).output, "20\n");
}

TEST_F(Kfyctl, ShowsWhatIsWrongWithEachSetting) {
  std::filesystem::create_directories(sandboxedRoot() / "etc/keyferry");
  sandboxedRoot().write("etc/keyferry/kfyd.toml",
                        "debugLoging = true\ndebugLogging = \"oui\"\nverboseLogging = \"Yes\"\n"
                        "relayAuthenticationKey = 1.5\nmaxPending = 0\n"
                        "maxFrameBytes = 2147483649\nLogFileName = 3\npinMode = \"none\"\n");
  sandboxedRoot().write(kIdentitySettings, "ssl_certificate_common_name = []\n");
  sandboxedRoot().write("etc/keyferry/pkcs11.toml", "timeLimitSeconds = 3601\npinMode = \"no\"\n");
  const std::vector<std::string> kLines = {
      "ssl_certificate_common_name is a text, not (an array); it does not count",
      "debugLoging is no setting; nearest is debugLogging",
      "debugLogging is true or false, not \"oui\"; false counts",
      "relayAuthenticationKey is true or false, not (a floating-point number); true counts",
      "maxPending is a number from 1 to 2147483648, not 0; 16384 counts",
      "maxFrameBytes is a number from 65536 to 2147483648, not 2147483649; 2147483648 counts",
      "LogFileName is a text, not 3; Keyferry.log counts",
      "pinMode belongs into pkcs11.toml; it does not count",
      "timeLimitSeconds is a number from 1 to 3600, not 3601; 3600 counts",
      "pinMode is \"none\", \"pass\" or \"protected\", not \"no\"; none counts"};
  for (const std::vector<std::string> &command :
       {std::vector<std::string>{"defaults", "list"}, {"status"}}) {
    const std::string text = kfyctl(command).output;
    const std::regex fault("(?:  ! |\\.toml: )(\\w+ (?:is|belongs) .*)");
    std::vector<std::string> lines;
    for (std::sregex_iterator each(text.begin(), text.end(), fault), end; each != end; ++each) {
      lines.push_back((*each)[1]);
    }
    EXPECT_EQ(lines, kLines);
    std::vector<std::string> asJSON = command;
    asJSON.emplace_back("--json");
    EXPECT_THAT(
        kfyctl(asJSON).output,
        testing::AllOf(
            HasSubstr("\"wrong\":\"is no setting\",\"inForce\":\"\",\"nearest\":\"debugLogging\""),
            HasSubstr("not 0\",\"inForce\":\"16384\",\"nearest\":\"\"")));
  }
}

TEST_F(Kfyctl, RefusesALineAndSaysWhatToTypeNext) {
  const std::tuple<std::vector<std::string>, int, const char *> kCases[] = {
      {{}, 2, "try: kfyctl --help"},
      {{"defaults", "write", "debugLoging", "true"},
       2,
       "try: kfyctl defaults write debugLogging true"},
      {{"defaults", "write", "pairingToolSeconds", "0"}, 2, "a number from 1 to 2147483648"},
      {{"identity", "show"}, 1, "no TLS identity is chosen"},
      {{"identity", "show", "--json"}, 1, "{\"error\":\"no TLS identity"},
  };
  for (const auto &[arguments, status, says] : kCases) {
    SCOPED_TRACE(says);
    const ToolRun run = kfyctl(arguments);
    EXPECT_EQ(run.status, status);
    EXPECT_THAT(run.notes, HasSubstr(says));
    EXPECT_THAT(run.output, testing::IsEmpty());
  }
  EXPECT_FALSE(std::filesystem::exists(sandboxedRoot() / "etc/keyferry"));
}

}  // namespace
