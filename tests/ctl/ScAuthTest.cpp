#include "ctl/ScAuth.hpp"

#include "ctl/RunningTools.hpp"
#include "encodings/HexString.hpp"
#include "fakes/MadeKeys.hpp"

namespace {

using testing::HasSubstr;

using ScAuth = Tools;

const std::string kOne(40, '1');
const std::string kTwo(40, '2');

TEST_F(ScAuth, PairsOneKeyAndAnotherOnlyInsteadOfIt) {
  EXPECT_EQ(scAuth({"pair", "--user", "ada", "--hash", kOne}).status, 0);
  EXPECT_EQ(scAuth({"pair", "--user", "ada", "--hash", kOne}).status, 0) << "it is so already";
  const ToolRun refused = scAuth({"pair", "--user", "ada", "--hash", kTwo});
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.notes,
              HasSubstr("try: sc_auth pair --user ada --hash " + kTwo + " --replace"));
  EXPECT_EQ(scAuth({"identities"}).output,
            "SmartCard: com.corvane.keyferry.ctkextension\n"
            "Paired identities which are used for authentication\n" +
                kOne + "\tada\n");

  EXPECT_EQ(scAuth({"pair", "--user", "ada", "--hash", kTwo, "--replace"}).status, 0);
  EXPECT_THAT(scAuth({"identities"}).output,
              testing::AllOf(HasSubstr(kTwo + "\tada\n"), testing::Not(HasSubstr(kOne))));
  EXPECT_EQ(scAuth({"unpair", "--user", "bob"}).status, 1);
  EXPECT_EQ(scAuth({"unpair", "--user", "ada"}).status, 0);
  EXPECT_EQ(scAuth({"identities"}).output, "SmartCard: com.corvane.keyferry.ctkextension\n");
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
