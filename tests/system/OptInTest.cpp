// What the protocol leaves open, tried for real, and that its settings close it.

#include <csignal>

#include "system/Machine.hpp"

namespace system_tests {
namespace {

using testing::AllOf;
using testing::HasSubstr;

class OptIn : public PairedMachine {
 public:
  OptIn() { startDaemon(); }

  // A local program without any key has a challenge signed as if it were to log in somewhere, and
  // asks for the password with it. The card's client signs whatever it is asked to, if it is.
  static bool isPasswordStolen(const crypto::Identity &card, bool isClientAsked) {
    Peer client = Peer::holder(card);
    Peer thief = Peer::remote();
    Peer program = Peer::local();
    program.send(signRequest(*thief.connect(rsaIdentity().key).challenge, card));
    if (isClientAsked) {
      const QuillMessage asked = client.receive();
      client.answer(asked, *card.key.signRawPKCS1(*asked.dataToSign));
    }
    const QuillMessage signature = program.receive();
    EXPECT_EQ(signature.status, isClientAsked);
    return thief
               .ask(QuillMessage::initCommandMessageAuthenticateWithSignature(
                   *signature.signedData, rsaIdentity().certificate.der()))
               .status &&
           thief.ask(QuillMessage::initCommandMessageCreateEphemeralUser("")).status;
  }
};

TEST_F(OptIn, PasswordIsStolenOnlyWithAKeyThatServesBothEnds) {
  EXPECT_TRUE(isPasswordStolen(rsaIdentity(), /*isClientAsked=*/true));
  EXPECT_FALSE(isPasswordStolen(otherRSAIdentity(), /*isClientAsked=*/true));
  write("/etc/keyferry/kfyd.toml", "relayAuthenticationKey = false\n");
  EXPECT_FALSE(isPasswordStolen(rsaIdentity(), /*isClientAsked=*/false));
}

TEST_F(OptIn, StrangersAreSeenAndDropped) {
  const Peer client = Peer::holder();
  write("/etc/keyferry/kfyd.toml",
        "unauthenticatedSeconds = 1\ncardEndsWithItsConnection = true\n");
  Peer stranger = Peer::remote();
  EXPECT_TRUE(stranger.isEnded());
  EXPECT_TRUE(hasLogged("ended: it has not authenticated (limit unauthenticatedSeconds is 1)"));
  EXPECT_TRUE(isMarkerThere());
  EXPECT_TRUE(eventually([] {
    return read("/run/keyferry/state.json").find("unauthenticatedSeconds") != std::string::npos;
  }));
  EXPECT_THAT(succeed("kfyctl", {"status"}),
              AllOf(HasSubstr(": authenticated, 1 certificates"),
                    HasSubstr("limit unauthenticatedSeconds was reached, times: 1")));
  daemon->end(SIGTERM);
  const Outcome after = run("kfyctl", {"status", "--json"});
  EXPECT_EQ(after.status, 3);
  EXPECT_THAT(after.output, AllOf(HasSubstr("stale: told by process"),
                                  HasSubstr("\"stateIsStale\":true,\"state\":{\"started\":")));
}

}  // namespace
}  // namespace system_tests
