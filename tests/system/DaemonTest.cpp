// The daemon over real TLS, with this test as its remote and local clients.

#include <csignal>

#include "protocol/Frame.hpp"
#include "system/Machine.hpp"

namespace system_tests {
namespace {

using testing::AllOf;
using testing::HasSubstr;

using Daemon = PairedMachine;

TEST_F(Daemon, CarriesFramesOfEverySize) {
  startDaemon();
  Peer remote = Peer::holder();
  Peer asker = Peer::local();
  const std::size_t empty = protocol::frameOf(signRequest({})).size();
  // A frame's length grows with the PIN by one each; each crosses the relay in both directions,
  // alone and with another one right behind it.
  for (const std::size_t length :
       std::vector<std::size_t>{1000, 16383, 16384, 16385, 16390, 16393, 32768, 32769, 1 << 20}) {
    QuillMessage request = signRequest({});
    request.PIN = SecretText(std::string(length - empty, '7'));
    ASSERT_EQ(protocol::frameOf(request).size(), length);
    const QuillMessage behind = signRequest(Bytes{1});
    asker.send(request);
    asker.send(behind);
    EXPECT_EQ(remote.receive().PIN->reveal().size(), length - empty) << length;
    EXPECT_EQ(remote.receive().messageID, behind.messageID) << length;
    const Bytes large(length / 2, 0x55);
    remote.answer(request, large);
    remote.answer(behind, Bytes{2});
    EXPECT_EQ(asker.receive().signedData, large) << length;
    EXPECT_EQ(asker.receive().signedData, Bytes{2}) << length;
  }
}

using Start = Machine;

TEST_F(Start, WithoutAnIdentityEndsWithStatus255) {
  succeed("kfyctl", {"debug", "on"});
  write("/etc/keyferry/kfyd.toml", "debugLoging = true\n");
  const Outcome outcome = run("kfyd", {});
  EXPECT_EQ(outcome.status, 255);
  EXPECT_EQ(
      outcome.output,
      "/etc/keyferry/kfyd.toml: debugLoging is no setting; nearest is debugLogging\n"
      "Starting Listener\nsetting up listener\nSetting up listener\ncreate and start listener\n"
      "SSL identity not specified\nlistener could not be set up.\nno\n"
      "error setting up listener. exiting.\n");
  EXPECT_EQ(read("/var/log/unified.log"),
            "kfy:/etc/keyferry/kfyd.toml: debugLoging is no setting; nearest is debugLogging\n"
            "kfy:setting up listener\nkfy:Setting up listener\nkfy:create and start listener\n"
            "kfy:SSL identity not specified\nkfy:listener could not be set up.\n"
            "kfy:error setting up listener. exiting.\n");
}

TEST_F(Daemon, TakesSuitesWithAEADAlone) {
  startDaemon();
  for (const auto &[suites, isTaken] :
       {std::pair("ECDHE-ECDSA-AES128-GCM-SHA256", true),
        {"ECDHE-ECDSA-AES128-SHA256:ECDHE-ECDSA-AES128-SHA", false}}) {
    const auto client = run("/usr/bin/openssl", {"s_client", "-connect", "127.0.0.1:4117",
                                                 "-tls1_2", "-cipher", suites});
    EXPECT_EQ(client.status == 0, isTaken) << client.output;
  }
}

TEST_F(Daemon, StrangersAreSeenAndDropped) {
  startDaemon();
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
