// What the protocol leaves open, tried for real, and that its settings close it.

#include <csignal>
#include "system/Machine.hpp"

namespace system_tests {
namespace {

using testing::AllOf;
using testing::HasSubstr;

class OptIn : public Machine {
 public:
  OptIn() {
    write("/etc/passwd",
          "root:x:0:0::/root:/bin/sh\nann:x:1000:1000::/:/bin/sh\n"
          "cvnkfyvncuser:x:1001:1001::/:/bin/bash\n");
    write("/etc/shadow", "root:*:19000::::::\ncvnkfyvncuser:!:19000:0:99999:7:::\n", 0640);
    makeServerIdentity();
    pair(rsaIdentity().key);
  }
};

struct Theft {
  const char *name;
  const crypto::Identity &(*cardKey)();
  const char *settings;
  bool isRelayed;
  bool succeeds;
};

// A local program without any key has a challenge signed as if it were to log in somewhere.
class Password : public OptIn, public testing::WithParamInterface<Theft> {};

TEST_P(Password, IsStolenOnlyWithAKeyThatServesBothEnds) {
  write("/etc/keyferry/kfyd.toml", GetParam().settings);
  startDaemon();
  const crypto::Identity &card = GetParam().cardKey();
  Peer holder = Peer::remote();
  ASSERT_TRUE(holder.authenticate(rsaIdentity()));
  ASSERT_TRUE(holder.insert({&card}));

  Peer thief = Peer::remote();
  Peer program = Peer::local();
  const QuillMessage invitation = thief.connect(rsaIdentity().key);
  ASSERT_EQ(invitation.challenge->size(), 16U);
  program.send(QuillMessage::initCommandMessageSignData(*invitation.challenge,
                                                        card.certificate.sha1(), SecretText()));
  if (GetParam().isRelayed) {
    const QuillMessage asked = holder.receive();
    holder.send(QuillMessage::initWithReplyMessageForSignMessage(
        /*status=*/true, asked.messageID, *card.key.signRawPKCS1(*asked.dataToSign)));
  }
  const QuillMessage signature = program.receive();
  EXPECT_EQ(signature.status, GetParam().isRelayed);
  const bool isAuthenticated = thief
                                   .ask(QuillMessage::initCommandMessageAuthenticateWithSignature(
                                       *signature.signedData, rsaIdentity().certificate.der()))
                                   .status;
  EXPECT_EQ(isAuthenticated, GetParam().succeeds);
  if (isAuthenticated) {
    const auto reply = thief.ask(QuillMessage::initCommandMessageCreateEphemeralUser(""));
    EXPECT_TRUE(reply.status);
    EXPECT_EQ(reply.ephemeralPassword->reveal().size(), 40U);
  }
}

INSTANTIATE_TEST_SUITE_P(OptIn, Password,
                         testing::Values(Theft{"SharedKey", rsaIdentity, "", true, true},
                                         Theft{"SharedKeyNotRelayed", rsaIdentity,
                                               "relayAuthenticationKey = false\n", false, false},
                                         Theft{"KeysOfTheirOwn", otherRSAIdentity, "", true,
                                               false}),
                         [](const auto &row) { return std::string(row.param.name); });

TEST_F(OptIn, StrangersAreSeenAndDropped) {
  startDaemon();
  Peer client = Peer::remote();
  ASSERT_TRUE(client.authenticate(rsaIdentity()));
  ASSERT_TRUE(client.insert({&rsaIdentity()}));
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
  daemon.reset();
  const Outcome after = run("kfyctl", {"status", "--json"});
  EXPECT_EQ(after.status, 3);
  EXPECT_THAT(after.output, AllOf(HasSubstr("stale: told by process"),
                                  HasSubstr("\"stateIsStale\":true,\"state\":{\"started\":")));
}

}  // namespace
}  // namespace system_tests
