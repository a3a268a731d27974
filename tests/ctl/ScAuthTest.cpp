#include "ctl/ScAuth.hpp"

#include <ctime>

#include "ctl/RunningTools.hpp"
#include "encodings/HexString.hpp"
#include "fakes/MadeKeys.hpp"

namespace {

using testing::HasSubstr;

using ScAuth = Tools;

const std::string kOne(40, '1');
const std::string kTwo(40, '2');
const std::string kOther = "jörg o'neil";
const std::string kFile = "etc/keyferry/pairings.toml";

TEST_F(ScAuth, PairsOneKeyAndAnotherOnlyInsteadOfIt) {
  EXPECT_EQ(scAuth({"pair", "--user", "ada", "--hash", kOne}).status, 0);
  EXPECT_EQ(sandboxedRoot().modeOf(kFile), 0600U);
  sandboxedRoot().write(kFile, "# by hand\n" + sandboxedRoot().read(kFile));
  EXPECT_EQ(scAuth({"pair", "--user", "ada", "--hash", kOne}).status, 0) << "it is so already";
  const ToolRun refused = scAuth({"pair", "--user", "ada", "--hash", kTwo});
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.notes,
              HasSubstr("try: sc_auth pair --user ada --hash " + kTwo + " --replace"));
  EXPECT_EQ(scAuth({"identities"}).output,
            "SmartCard: com.corvane.keyferry.ctkextension\n"
            "Paired identities which are used for authentication\n" +
                kOne + "\tada\n");

  EXPECT_EQ(scAuth({"pair", "--user", kOther, "--hash", kTwo, "--replace"}).status, 0);
  EXPECT_THAT(scAuth({"identities"}).output, testing::AllOf(HasSubstr(kTwo + "\t" + kOther + "\n"),
                                                            testing::Not(HasSubstr(kOne))));
  EXPECT_EQ(scAuth({"unpair", "--user", "bob"}).status, 1);
  EXPECT_EQ(scAuth({"unpair", "--user", kOther}).status, 0);
  EXPECT_THAT(sandboxedRoot().read(kFile), testing::StartsWith("# by hand\n"));
  EXPECT_EQ(scAuth({"identities"}).output, "SmartCard: com.corvane.keyferry.ctkextension\n");
}

TEST_F(ScAuth, PairsTheDeviceThatJustTries) {
  const auto has = [](const std::string &devices) {
    sandboxedRoot().write("run/keyferry/state.json", "{\"unpaired\":[" + devices + "]}");
  };
  const auto device = [](const std::string &hash, int age) {
    return R"({"address":"a\u001b","publicKeyHash":")" + hash + R"(","lastTried":)" +
           std::to_string(std::time(nullptr) - age) + "}";
  };
  std::filesystem::create_directories(sandboxedRoot() / "run/keyferry");
  has(device(kOne, 700) + "," + device(kTwo, -60) + R"(,7,{"publicKeyHash":"11"})");
  EXPECT_THAT(kfyctl({"pair", "ada"}).notes, HasSubstr("no device that is not paired"));
  has(device(kOne, 700) + "," + device(kTwo, 5));
  EXPECT_EQ(kfyctl({"pair", "ada"}, "n\n").status, 1);
  EXPECT_EQ(kfyctl({"pair", "ada"}).status, 1) << "nobody answers";
  EXPECT_EQ(kfyctl({"pair", "eve"}, "y\n").status, 1);
  const ToolRun paired = kfyctl({"pair", "ada"}, "y\n");
  EXPECT_THAT(paired.notes,
              HasSubstr("2222 2222 2222 2222 2222 2222 2222 2222 2222 2222  from a?"));
  EXPECT_THAT(scAuth({"identities"}).output, HasSubstr(kTwo + "\tada\n"));
  has(device(kOne, 9) + "," + device(kTwo, 5));
  EXPECT_THAT(kfyctl({"pair", "ada"}, "y\n").notes, HasSubstr("try: kfyctl pair ada " + kTwo))
      << "not without a name: there are two";
  EXPECT_THAT(kfyctl({"pair", "ada", kOne}).notes,
              HasSubstr("try: kfyctl pair ada " + kOne + " --replace"));
  EXPECT_EQ(kfyctl({"pair", "ada", kOne, "--replace"}).status, 0);
  EXPECT_THAT(scAuth({"identities"}).output, HasSubstr(kOne + "\tada\n"));
}

TEST_F(ScAuth, LeavesAFileThatIsWrongAsItIsAndSaysWhy) {
  std::filesystem::create_directories(sandboxedRoot() / "etc/keyferry");
  for (const auto &[content, mode, reason] : {std::tuple(std::string("\nada =\n"), 0600U, "line 2"),
                                              {"ada = \"DEE1\"\n", 0600U, "for \"ada\""},
                                              {"ada = \"" + kOne + "\"\n", 0602U, "root alone"}}) {
    sandboxedRoot().write(kFile, content);
    ASSERT_EQ(::chmod((sandboxedRoot() / kFile).c_str(), mode), 0);
    const ToolRun run = scAuth({"pair", "--user", "ada", "--hash", kTwo, "--replace"});
    EXPECT_EQ(run.status, 1) << content;
    EXPECT_THAT(run.notes, HasSubstr(reason));
    EXPECT_EQ(sandboxedRoot().read(kFile), content);
  }
}

TEST_F(ScAuth, TakesTheKeyOutOfACertificate) {
  const auto [certificate, key] = fakes::madeIdentity("RSA", "ada");
  const std::string hash =
      encodings::hexString(encodings::sha1(key.publicKey().externalRepresentation().value()));
  sandboxedRoot().write("ada.der", std::string(base::textOf(certificate.der())));
  sandboxedRoot().write("ada.pem", certificate.pem());
  for (const char *const name : {"ada.der", "ada.pem"}) {
    const ToolRun run = scAuth({"pair", "--user", "ada", "--certificate", sandboxedRoot() / name});
    EXPECT_EQ(run.status, 0) << name << ": " << run.notes;
    EXPECT_THAT(scAuth({"identities"}).output, HasSubstr(hash + "\tada\n")) << name;
  }
  sandboxedRoot().write("ec.pem", fakes::makeIdentity("ada").certificate.pem());
  EXPECT_THAT(scAuth({"pair", "--user", "ada", "--certificate", sandboxedRoot() / "ec.pem"}).notes,
              HasSubstr("RSA key alone"));
}

}  // namespace
