// The daemon over real TLS, with this test as its remote and local clients.

#include <sys/socket.h>

#include "base/Descriptor.hpp"
#include "fakes/LoopbackSocket.hpp"
#include "protocol/Frame.hpp"
#include "system/Machine.hpp"

namespace system_tests {
namespace {

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

TEST_F(Daemon, WithABusyPortGoesOnWithTheOtherListener) {
  std::uint16_t port = client::kPublicPort;
  const base::Descriptor busy = fakes::boundToLoopback(port);
  ASSERT_EQ(listen(busy.get(), 1), 0);
  daemon = start("kfyd", {});
  EXPECT_TRUE(daemon->hasSaid("kfyd: listener (tcp) failed: Address already in use\n"));
  EXPECT_TRUE(daemon->hasSaid("Listener on port 4117 (tcp) ready!"));
  EXPECT_TRUE(Peer::local().ask(QuillMessage::initCommandMessageGetCertificates()).status);
  EXPECT_TRUE(
      eventually([this] { return hasLogged("port 4116 is taken by test_system (process "); }));
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

}  // namespace
}  // namespace system_tests
