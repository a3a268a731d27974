// A key elsewhere signs and decrypts: kfyd, kfy-remote, kfyctl and sc_auth as people run them.

#include "encodings/HexString.hpp"
#include "system/CardMachine.hpp"

namespace system_tests {
namespace {

using testing::HasSubstr;

std::string hashOf(const crypto::Identity &identity) {
  return encodings::hexString(identity.certificate.sha1());
}

class WholeLoop : public CardMachine {
 public:
  WholeLoop() { write("/letter", "a real file\n"); }

  Outcome sign() {
    return run("kfyctl", {"sign", "--certificate", hashOf(rsaIdentity()), "--in", at("/letter"),
                          "--out", at("/letter.sig")});
  }
};

TEST_F(WholeLoop, SignsAndDecryptsWithKeysThatStayAway) {
  const auto remote = startConfirmingRemote();
  EXPECT_TRUE(isMarkerThere());
  EXPECT_THAT(succeed("kfyctl", {"certificates"}),
              testing::AllOf(HasSubstr(hashOf(rsaIdentity())), HasSubstr(hashOf(ecIdentity()))));
  for (const crypto::Identity *identity : {&ecIdentity(), &rsaIdentity()}) {
    write("/certificate.pem", identity->certificate.pem());
    succeed("/usr/bin/openssl",
            {"x509", "-in", at("/certificate.pem"), "-pubkey", "-noout", "-out", at("/key.pub")});
    for (const char *digest : {"sha256", "sha512"}) {
      succeed("kfyctl", {"sign", "--certificate", hashOf(*identity), "--hash", digest, "--in",
                         at("/letter"), "--out", at("/letter.sig")});
      EXPECT_THAT(
          succeed("/usr/bin/openssl", {"dgst", std::string("-") + digest, "-verify", at("/key.pub"),
                                       "-signature", at("/letter.sig"), at("/letter")}),
          HasSubstr("Verified OK"));
    }
  }
  write("/secret", "in the blue tin");
  for (const std::string padding : {"oaep", "pkcs1"}) {
    succeed("/usr/bin/openssl",
            {"pkeyutl", "-encrypt", "-pubin", "-inkey", at("/key.pub"), "-pkeyopt",
             "rsa_padding_mode:" + padding, "-in", at("/secret"), "-out", at("/secret.enc")});
    succeed("kfyctl", {"decrypt", "--certificate", hashOf(rsaIdentity()), "--padding", padding,
                       "--in", at("/secret.enc"), "--out", at("/secret.dec")});
    EXPECT_EQ(read("/secret.dec"), "in the blue tin") << padding;
  }
  EXPECT_EQ(remote->end(SIGTERM), 0) << remote->output();
  EXPECT_FALSE(isMarkerThere()) << "the card is gone before the remote client is";
}

TEST_F(WholeLoop, SaysWhatIsWrongAndWhatToDo) {
  const Outcome noCard = sign();
  EXPECT_EQ(noCard.status, 1);
  EXPECT_THAT(noCard.output, HasSubstr("kfyctl: try: "));
  const auto remote = startRemote({"--fingerprint", fingerprint_});
  ASSERT_TRUE(remote->hasSaid("card inserted")) << remote->output();
  EXPECT_EQ(sign().status, 1) << "with no way to ask every use is refused";
  EXPECT_EQ(read("/letter.sig"), "");
  EXPECT_THAT(succeed("kfyctl", {"status"}), HasSubstr("pairing"));
  EXPECT_EQ(daemon->end(SIGTERM), 128 + SIGTERM);
  EXPECT_EQ(run("kfyctl", {"certificates"}).status, 3) << "the daemon did not answer";
}

}  // namespace
}  // namespace system_tests
