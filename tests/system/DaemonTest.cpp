// The daemon over real TLS, with this test as its remote and local clients.

#include <csignal>

#include "protocol/Frame.hpp"
#include "system/Machine.hpp"

namespace system_tests {
namespace {

using testing::HasSubstr;

using Daemon = PairedMachine;

TEST_F(Daemon, CarriesFramesOfEverySize) {
  startDaemon();
  Peer remote = Peer::holder();
  Peer asker = Peer::local();
  const std::size_t empty = protocol::frameOf(signRequest({})).size();
  // A frame's length grows with the PIN by one each; each crosses the relay in both directions.
  for (const std::size_t length :
       {1000U, 16383U, 16384U, 16385U, 16390U, 16393U, 32769U, 1U << 20}) {
    QuillMessage request = signRequest({});
    request.PIN = SecretText(std::string(length - empty, '7'));
    ASSERT_EQ(protocol::frameOf(request).size(), length);
    asker.send(request);
    EXPECT_EQ(remote.receive().PIN->reveal().size(), length - empty) << length;
    const Bytes large(length / 2, 0x55);
    remote.answer(request, large);
    EXPECT_EQ(asker.receive().signedData, large) << length;
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
  EXPECT_TRUE(hasLogged("kfy:error setting up listener. exiting.\n"));
}

TEST_F(Daemon, TakesSuitesWithAEADAlone) {
  startDaemon();
  for (const auto &[suites, isTaken] :
       {std::pair("ECDHE-ECDSA-AES128-GCM-SHA256", true), {"ECDHE-ECDSA-AES128-SHA256", false}}) {
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
