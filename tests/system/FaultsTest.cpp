// What the daemon does when networks, peers and disks fail for real.

#include <linux/filter.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <filesystem>

#include "base/Descriptor.hpp"
#include "client/PinnedServer.hpp"
#include "fakes/LoopbackSocket.hpp"
#include "system/Machine.hpp"

namespace system_tests {
namespace {

using namespace std::chrono_literals;

// The peer's end of a connection is taken from it, so that it can be brought down.
void fallSilent(Peer &peer) {
  // what comes in is dropped before it is acknowledged, as on a link that is down
  sock_filter dropAll{BPF_RET | BPF_K, 0, 0, 0};
  const sock_fprog filter{1, &dropAll};
  ASSERT_EQ(setsockopt(peer.connection->descriptor(), SOL_SOCKET, SO_ATTACH_FILTER, &filter,
                       sizeof filter),
            0);
}
void reset(Peer &peer) {
  base::Descriptor copy(dup(peer.connection->descriptor()));
  peer.connection->abandon();
  fakes::reset(copy);
}
void closeHalf(Peer &peer) {
  shutdown(peer.connection->descriptor(), SHUT_WR);
}

class Faults : public Machine {
 public:
  Faults() {
    makeServerIdentity();
    pair(rsaIdentity().key);
    succeed("kfyctl", {"defaults", "write", "stalledOutputSeconds", "2"});
  }

  static Peer holder() {
    Peer remote = Peer::remote();
    EXPECT_TRUE(remote.authenticate(rsaIdentity()));
    EXPECT_TRUE(remote.insert({&otherRSAIdentity()}));
    return remote;
  }
  static QuillMessage signRequest(std::uint8_t number) {
    return QuillMessage::initCommandMessageSignData(
        Bytes{number}, otherRSAIdentity().certificate.sha1(), SecretText());
  }
  // Asks and answers one request; true if it is the one that was asked and the answer comes back.
  static bool isServed(Peer &asker, Peer &remote) {
    const QuillMessage request = signRequest(77);
    asker.send(request);
    const auto asked = remote.connection->receive(client::Patience::lasting(1s));
    if (!asked || asked->messageID != request.messageID) {
      return false;
    }
    remote.send(QuillMessage::initWithReplyMessageForSignMessage(/*status=*/true, asked->messageID,
                                                                 Bytes{5}));
    return asker.connection->await(*request.messageID, client::Patience::lasting(kPatience))
               .value_or(QuillMessage())
               .signedData == Bytes{5};
  }
};

TEST_F(Faults, RemoteThatVanishesWithRequestsPendingIsReplaced) {
  startDaemon();
  Peer asker = Peer::local();
  struct Case {
    const char *name;
    void (*vanish)(Peer &);
  };
  for (const Case &row :
       {Case{"reset", reset}, Case{"half closed", closeHalf}, Case{"silent", fallSilent}}) {
    SCOPED_TRACE(row.name);
    Peer lost = holder();
    asker.send(signRequest(1));
    EXPECT_EQ(lost.receive().dataToSign, Bytes{1});
    row.vanish(lost);
    asker.send(signRequest(2));  // a silent one shows by what it does not acknowledge
    Peer back = holder();
    EXPECT_TRUE(eventually([&] { return isServed(asker, back); }));
    while (const auto other = asker.connection->take()) {
      EXPECT_FALSE(other->status) << "who was asked before has not answered";
    }
  }
}

TEST_F(Faults, NewestRemoteIsAskedAtOnceWhileADeadOneStillStands) {
  succeed("kfyctl", {"defaults", "write", "newestRemoteFirst", "true"});
  startDaemon();
  Peer asker = Peer::local();
  Peer dead = holder();
  fallSilent(dead);
  Peer back = holder();
  EXPECT_TRUE(isServed(asker, back));
}

TEST_F(Faults, RequesterThatVanishesTakesNothingWithIt) {
  startDaemon();
  Peer remote = holder();
  for (void (*vanish)(Peer &) : {reset, closeHalf, fallSilent}) {
    Peer lost = Peer::local();
    lost.send(signRequest(3));
    const QuillMessage request = remote.receive();
    vanish(lost);
    // a frame that no socket buffer takes, so that a silent one is noticed
    remote.send(QuillMessage::initWithReplyMessageForSignMessage(
        /*status=*/true, request.messageID, Bytes(1 << 20, 0x5A)));
    Peer other = Peer::local();
    EXPECT_TRUE(isServed(other, remote));
    EXPECT_FALSE(other.connection->take()) << "the other's answer is not for it";
  }
}

TEST_F(Faults, WithoutDescriptorsServesOnAndRecovers) {
  startDaemon();
  Peer remote = holder();
  Peer asker = Peer::local();
  rlimit before{};
  ASSERT_EQ(prlimit(daemon->id(), RLIMIT_NOFILE, nullptr, &before), 0);
  const rlimit few{4, before.rlim_max};
  ASSERT_EQ(prlimit(daemon->id(), RLIMIT_NOFILE, &few, nullptr), 0);
  EXPECT_FALSE(client::openLoopback(client::Patience::lasting(std::chrono::milliseconds(500))));
  EXPECT_TRUE(isServed(asker, remote)) << "who is there is served on";
  EXPECT_TRUE(remote.insert({&otherRSAIdentity()})) << "answered even though no marker can be made";
  ASSERT_EQ(prlimit(daemon->id(), RLIMIT_NOFILE, &before, nullptr), 0);
  Peer other = Peer::local();
  EXPECT_TRUE(isServed(other, remote));
}

// Both logs' folders lie on a small disk of their own.
class FullLogDisk : public Faults {
 public:
  void SetUp() override { mountDisk("/tmp", "size=64k"); }
};

TEST_F(FullLogDisk, StopsNothingAndIsWrittenToAgain) {
  succeed("kfyctl", {"debug", "on"});
  write("/tmp/filler", std::string(256 * 1024, 'x'));
  startDaemon();
  Peer remote = holder();
  Peer asker = Peer::local();
  EXPECT_TRUE(isServed(asker, remote));
  EXPECT_TRUE(isMarkerThere()) << "an empty file needs no room";
  EXPECT_EQ(read("/tmp/kfy/Keyferry.log"), "");
  std::filesystem::remove(at("/tmp/filler"));
  EXPECT_TRUE(isServed(asker, remote));
  const std::string log = read("/tmp/kfy/Keyferry.log");
  EXPECT_THAT(log, testing::HasSubstr("Removing pending worker"));
  EXPECT_TRUE(daemon->hasSaid("Removing pending worker"));
  succeed("kfyctl", {"debug", "off"});
  EXPECT_TRUE(isServed(asker, remote));
  EXPECT_EQ(read("/tmp/kfy/Keyferry.log"), log) << "off at once";
}

}  // namespace
}  // namespace system_tests
