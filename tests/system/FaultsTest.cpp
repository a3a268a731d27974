// What the daemon does when networks, peers and disks fail for real.

#include <linux/filter.h>

#include <filesystem>

#include "base/Places.hpp"
#include "client/TcpConnect.hpp"
#include "fakes/LoopbackSocket.hpp"
#include "system/CardMachine.hpp"
#include "system/OwnNetwork.hpp"

namespace system_tests {
namespace {

using namespace std::chrono_literals;

// What comes in is dropped before it is acknowledged, as on a link that is down.
void fallSilent(Peer &peer) {
  sock_filter dropAll{BPF_RET | BPF_K, 0, 0, 0};
  const sock_fprog filter{1, &dropAll};
  ASSERT_EQ(setsockopt(peer.connection->descriptor(), SOL_SOCKET, SO_ATTACH_FILTER, &filter,
                       sizeof filter),
            0);
}
// The peer's end of a connection is taken from it, so that it can be brought down.
void reset(Peer &peer) {
  base::Descriptor copy(dup(peer.connection->descriptor()));
  peer.connection->abandon();
  fakes::reset(copy);
}
void closeHalf(Peer &peer) {
  shutdown(peer.connection->descriptor(), SHUT_WR);
}

// Asks and answers one request, in frames of several TLS records; true if it is the one that was
// asked and the answer comes back.
bool isServed(Peer &asker, Peer &remote) {
  const QuillMessage request = signRequest(Bytes(20'000, 77));
  asker.send(request);
  const auto asked = remote.connection->receive(client::WaitLimits::within(1s));
  if (!asked || asked->messageID != request.messageID) {
    return false;
  }
  remote.answer(*asked, *request.dataToSign);
  return asker.connection->await(*request.messageID, client::WaitLimits::within(kLongestWait))
             .value_or(QuillMessage())
             .signedData == request.dataToSign;
}

class Faults : public PairedMachine {
 public:
  Faults() {
    succeed("kfyctl", {"defaults", "write", "stalledOutputSeconds", "2"});
    startDaemon();
  }
};

TEST_F(Faults, RemoteThatVanishesWithRequestsPendingTakesTheCardAndIsReplaced) {
  Peer asker = Peer::local();
  const auto garble = [](Peer &peer) {
    (void)send(peer.connection->descriptor(), "no TLS record", 13, 0);
  };
  for (void (*vanish)(Peer &) : {reset, closeHalf, fallSilent, +garble}) {
    Peer lost = Peer::holder();
    asker.send(signRequest(Bytes{1}));
    EXPECT_EQ(lost.receive().dataToSign, Bytes{1});
    vanish(lost);
    asker.send(signRequest(Bytes{2}));  // a silent one shows by what it does not acknowledge
    EXPECT_TRUE(eventually([] { return !isMarkerThere(); }));
    Peer back = Peer::holder();
    EXPECT_TRUE(eventually([&] { return isServed(asker, back); }));
    while (const auto other = asker.connection->take()) {
      EXPECT_FALSE(other->status) << "who was asked before has not answered";
    }
  }
  EXPECT_TRUE(daemon->hasSaid("failed: Connection reset by peer")) << daemon->output();
  EXPECT_TRUE(hasLogged("worker is not local removing smartcard"));
}

TEST_F(Faults, RequesterThatVanishesOrAFailedHandshakeTakesNothingWithIt) {
  Peer remote = Peer::holder();
  for (void (*vanish)(Peer &) : {reset, closeHalf, fallSilent}) {
    Peer lost = Peer::local();
    lost.send(signRequest(Bytes{3}));
    const QuillMessage request = remote.receive();
    vanish(lost);
    // a frame that no socket buffer takes, so that a silent one is noticed
    remote.answer(request, Bytes(1 << 20, 0x5A));
    Peer other = Peer::local();
    EXPECT_TRUE(isServed(other, remote));
    EXPECT_FALSE(other.connection->take()) << "the other's answer is not for it";
  }
  const base::Descriptor plain = client::connectTcp(client::kLoopbackHost, base::kPublicPort,
                                                    client::WaitLimits{}, /*error=*/nullptr);
  EXPECT_EQ(send(plain.get(), "GET / HTTP/1.0\r\n\r\n", 18, 0), 18);
  EXPECT_TRUE(daemon->hasSaid("failed: Protocol error")) << daemon->output();
  EXPECT_TRUE(isMarkerThere());
}

using RemoteFaults = CardMachine;

TEST_F(RemoteFaults, NetworkThatWasAwayIsNoticedOnItsReturnAndMentionedOnce) {
  const auto remote = startConfirmingRemote();
  ASSERT_TRUE(setLoopback(/*isUp=*/false));
  // a lost network takes longer to be noticed than anything else
  EXPECT_TRUE(remote->hasSaid("timed out") || remote->hasSaid("timed out")) << remote->output();
  ASSERT_TRUE(setLoopback(/*isUp=*/true));
  EXPECT_TRUE(remote->hasSaid("connected to 127.0.0.1:4116 again after")) << remote->output();
  EXPECT_EQ(std::ranges::count(remote->output(), ';'), 1) << "a line for an outage";
}

// Both logs' folders lie on a small disk of their own.
class FullLogDisk : public PairedMachine {
 public:
  void SetUp() override { mountDisk("/tmp", "size=1m"); }
};

TEST_F(FullLogDisk, StopsNothingAndIsWrittenToAgain) {
  succeed("kfyctl", {"debug", "on"});
  write("/tmp/filler", std::string(2048 * 1024, 'x'));
  startDaemon();
  Peer remote = Peer::holder();
  Peer asker = Peer::local();
  EXPECT_TRUE(isServed(asker, remote));
  EXPECT_TRUE(isMarkerThere()) << "an empty file needs no room";
  EXPECT_EQ(read("/tmp/kfy/Keyferry.log"), "");
  std::filesystem::remove(at("/tmp/filler"));
  EXPECT_TRUE(isServed(asker, remote));
  EXPECT_THAT(read("/tmp/kfy/Keyferry.log"), testing::HasSubstr("Removing pending worker"));
}

}  // namespace
}  // namespace system_tests
