#include "ctl/Kfyctl.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "crypto/Certificate.hpp"
#include "ctl/RunningTools.hpp"
#include "fakes/MadeKeys.hpp"
#include "fakes/SoftTokens.hpp"
#include "support/HexString.hpp"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

const std::string kIdentitySettings = "etc/keyferry/com.corvane.kfyd.toml";
const std::string kSettings = "etc/keyferry/kfyd.toml";

class Kfyctl : public testing::Test {
 protected:
  Kfyctl() { emptyTheRoot(); }

  // The hash of a new identity.
  static std::string created(const std::string &name) {
    const ToolRun run = kfyctl({"identity", "create", "--common-name", name});
    EXPECT_EQ(run.status, 0) << run.notes;
    return run.output.substr(0, run.output.find('\n'));
  }
};

TEST_F(Kfyctl, UsesAnIdentityWhoseLabelHoldsCapitals) {
  const mode_t before = ::umask(077);
  const std::string hash = created("Build-Host");
  const ToolRun use = kfyctl({"identity", "use", "Build-Host"});
  ::umask(before);

  EXPECT_EQ(use.status, 0) << use.notes;
  EXPECT_EQ(sandboxedRoot().read(kIdentitySettings),
            "ssl_certificate_sha1_hash = \"" + hash + "\"\n");
  EXPECT_EQ(sandboxedRoot().modeOf("etc/keyferry/server.pem"), 0644U);
  EXPECT_EQ(sandboxedRoot().modeOf("etc/keyferry"), 0755U);
  const auto pinned = crypto::Certificate::allFromPEM(
      base::viewOf(sandboxedRoot().read("etc/keyferry/server.pem")));
  ASSERT_EQ(pinned.size(), 1U);
  EXPECT_EQ(support::hexString(pinned.front().sha1()), hash);
  EXPECT_THAT(kfyctl({"identity", "show", "--json"}).output,
              testing::AllOf(HasSubstr("\"sha1\":\"" + hash + "\""), HasSubstr("\"inUse\":true")));
}

TEST_F(Kfyctl, NamesAnIdentityByItsLabelAsStoredOrByItsHash) {
  const std::string first = created("Box");
  const std::string second = created("Box");
  EXPECT_THAT(kfyctl({"identity", "use", "Box"}).notes, HasSubstr("2 identities"));
  EXPECT_EQ(kfyctl({"identity", "use", "0x" + second}).status, 0);
  EXPECT_EQ(kfyctl({"identity", "use", "box"}).status, 1);
  EXPECT_THAT(sandboxedRoot().read(kIdentitySettings), HasSubstr(second));

  EXPECT_EQ(kfyctl({"identity", "delete", second}).status, 1) << "kfyd could not start without it";
  EXPECT_EQ(kfyctl({"identity", "delete", first}).status, 0);
  EXPECT_EQ(kfyctl({"identity", "delete", second, "--force"}).status, 0);
  EXPECT_EQ(kfyctl({"identity", "list"}).output, "");
}

TEST_F(Kfyctl, FindsTheIdentityInUseByTheNameInLowerCase) {
  created("box");
  created("Hut");
  ASSERT_EQ(kfyctl({"defaults", "write", "ssl_certificate_common_name", "BOX"}).status, 0);
  EXPECT_THAT(kfyctl({"identity", "show"}).output, HasSubstr("box\n"));
  ASSERT_EQ(kfyctl({"defaults", "write", "ssl_certificate_common_name", "Hut"}).status, 0);
  EXPECT_THAT(kfyctl({"identity", "show"}).notes, HasSubstr("no TLS identity named \"Hut\""));
}

TEST_F(Kfyctl, ImportsAnIdentityFromAFileAndTakesItOnce) {
  const crypto::Identity identity = fakes::makeIdentity("Ada");
  sandboxedRoot().write("ada.pem", fakes::pemOf(identity));
  const std::string file = sandboxedRoot() / "ada.pem";
  EXPECT_EQ(kfyctl({"identity", "import", file, "--label", "hers"}).output,
            support::hexString(identity.certificate.sha1()) + "\n");
  EXPECT_THAT(kfyctl({"identity", "import", file}).notes, HasSubstr("in the keychain already"));
  EXPECT_EQ(kfyctl({"identity", "show", "hers"}).status, 0);
}

TEST_F(Kfyctl, ListsTokensApartAndUsesWhatIsOnThem) {
  fakes::SoftTokens soft;
  const crypto::Identity onToken = fakes::makeIdentity("Card");
  const std::string cardHash = support::hexString(onToken.certificate.sha1());
  soft.make("office", "1234");
  soft.put("office", onToken, "card", "01");
  std::filesystem::create_directories(sandboxedRoot() / "etc/pkcs11");
  std::filesystem::copy(soft.moduleFolder(), sandboxedRoot() / "etc/pkcs11/modules");
  const std::string hash = created("Box");
  EXPECT_EQ(kfyctl({"identity", "use", "card"}).status, 0);
  const ToolRun list = kfyctl({"identity", "list"});
  EXPECT_THAT(list.output, StartsWith(hash + "   Box\non pkcs11:")) << list.notes;
  EXPECT_THAT(list.output, EndsWith("token=office:\n" + cardHash + " * card\n"));
  EXPECT_THAT(kfyctl({"identity", "list", "--json"}).output, HasSubstr("\"token\":\"pkcs11:"));
  EXPECT_THAT(kfyctl({"identity", "show"}).output, HasSubstr(cardHash));
  EXPECT_THAT(kfyctl({"identity", "delete", "card", "--force"}).notes, HasSubstr("is on a token"));
  soft.remove("office");
  EXPECT_THAT(kfyctl({"identity", "show"}).notes, HasSubstr("in the keychain or on a token"));
}

TEST_F(Kfyctl, ChangesOneSettingAndKeepsAllOtherLines) {
  std::filesystem::create_directories(sandboxedRoot() / "etc/keyferry");
  sandboxedRoot().write(kSettings, "# mine\nodd = 1\ndebugLogging = false # why\n");
  EXPECT_EQ(kfyctl({"defaults", "write", "debugLogging", "YES"}).status, 0);
  EXPECT_EQ(sandboxedRoot().read(kSettings), "# mine\nodd = 1\ndebugLogging = true # why\n");
  EXPECT_EQ(kfyctl({"defaults", "read", "debugLogging"}).output, "true\n");
  EXPECT_EQ(kfyctl({"defaults", "delete", "debugLogging"}).status, 0);
  EXPECT_EQ(sandboxedRoot().read(kSettings), "# mine\nodd = 1\n");
  EXPECT_EQ(kfyctl({"defaults", "read", "pairingToolSeconds"}).output, "20\n");
}

TEST_F(Kfyctl, DebugModeIsAMarkerInAFolderOfRootsOwn) {
  std::filesystem::create_directories(sandboxedRoot() / "var");
  EXPECT_THAT(kfyctl({"debug", "on"}).notes, HasSubstr("frames and passwords"));
  EXPECT_EQ(sandboxedRoot().modeOf("var/root"), 0700U);
  EXPECT_THAT(kfyctl({"debug", "status", "--json"}).output, HasSubstr("\"on\":true"));
  EXPECT_EQ(kfyctl({"debug", "off"}).status, 0);
  EXPECT_FALSE(std::filesystem::exists(sandboxedRoot() / "var/root/.kfydebug"));

  ASSERT_EQ(kfyctl({"defaults", "write", "debugLogging", "true"}).status, 0);
  EXPECT_EQ(kfyctl({"debug", "off"}).status, 1) << "the setting keeps it on";
}

TEST_F(Kfyctl, RefusesALineAndSaysWhatToTypeNext) {
  struct Case {
    std::vector<std::string> arguments;
    int status;
    const char *says;
  };
  const Case kCases[] = {
      {{}, 2, "try: kfyctl --help"},
      {{"identity", "frob"}, 2, "\"frob\""},
      {{"identity", "create"}, 2, "try: kfyctl identity create --help"},
      {{"defaults", "write", "debugLoging", "true"},
       2,
       "try: kfyctl defaults write debugLogging true"},
      {{"defaults", "write", "debugLogging", "maybe"}, 2, "true or false"},
      {{"defaults", "write", "pairingToolSeconds", "0"}, 2, "at least 1"},
      {{"defaults", "write", "pairingToolBytes", "5k"}, 2, "a number"},
      {{"defaults", "write", "ssl_certificate_sha1_hash", "AB"}, 2, "40 digits"},
      {{"defaults", "read", "LogFolderPath"}, 1, "is not set"},
      {{"identity", "show"}, 1, "no TLS identity is chosen"},
      {{"sign", "--certificate", "00"}, 2, "kfyctl certificates"},
      {{"identity", "show", "--json"}, 1, "{\"error\":\"no TLS identity"},
  };
  for (const Case &row : kCases) {
    SCOPED_TRACE(row.says);
    const ToolRun run = kfyctl(row.arguments);
    EXPECT_EQ(run.status, row.status);
    EXPECT_THAT(run.notes, HasSubstr(row.says));
    EXPECT_THAT(run.output, testing::IsEmpty());
  }
  EXPECT_FALSE(std::filesystem::exists(sandboxedRoot() / "etc/keyferry"));
}

}  // namespace
