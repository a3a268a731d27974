// The daemon over real TLS, with this test as its remote and local clients.

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <map>

#include "base/Descriptor.hpp"
#include "client/Dialing.hpp"
#include "client/PinnedServer.hpp"
#include "crypto/TlsChannel.hpp"
#include "protocol/Frame.hpp"
#include "support/HexString.hpp"
#include "system/Machine.hpp"

namespace system_tests {
namespace {

using testing::HasSubstr;
using testing::Not;

class Daemon : public Machine {
 public:
  Daemon() {
    makeServerIdentity();
    pair(rsaIdentity().key);
    startDaemon();
  }

  static QuillMessage signRequest(const crypto::Identity &with, const Bytes &data) {
    return QuillMessage::initCommandMessageSignData(data, with.certificate.sha1(), SecretText());
  }
  // An authenticated remote client whose card holds these keys.
  static Peer holder(const std::vector<const crypto::Identity *> &identities) {
    Peer remote = Peer::remote();
    EXPECT_TRUE(remote.authenticate(rsaIdentity()));
    EXPECT_TRUE(remote.insert(identities));
    return remote;
  }
};

TEST_F(Daemon, RelaysForACardKeyThatIsNotThePairedOne) {
  Peer remote = holder({&ecIdentity(), &otherRSAIdentity()});
  Peer asker = Peer::local();
  EXPECT_TRUE(isMarkerThere());
  EXPECT_EQ(protocol::certificateInfosOf(
                *asker.ask(QuillMessage::initCommandMessageGetCertificates()).certificates)
                .size(),
            2U);
  const QuillMessage request = signRequest(otherRSAIdentity(), Bytes{1, 2, 3});
  asker.send(request);
  signOnce(remote, otherRSAIdentity());
  const QuillMessage answer = asker.receive();
  EXPECT_EQ(answer.messageID, request.messageID);
  EXPECT_TRUE(
      otherRSAIdentity().key.publicKey().verifyRawPKCS1(*answer.signedData, Bytes{1, 2, 3}));
  EXPECT_FALSE(asker.ask(signRequest(rsaIdentity(), Bytes{1})).status) << "not on the card";
}

TEST_F(Daemon, TwoRemotesServeTwoHundredRequestsInFlight) {
  Peer first = holder({&otherRSAIdentity()});
  Peer second = holder({&ecIdentity()});
  std::vector<Peer> askers;
  for (int count = 0; count < 5; ++count) {
    askers.push_back(Peer::local());
  }
  std::vector<std::vector<QuillMessage>> sent(askers.size());
  for (std::uint8_t round = 0; round < 40; ++round) {
    for (std::size_t index = 0; index < askers.size(); ++index) {
      const crypto::Identity &key = round % 2 == 0 ? otherRSAIdentity() : ecIdentity();
      sent[index].push_back(signRequest(key, Bytes{round, static_cast<std::uint8_t>(index)}));
      askers[index].send(sent[index].back());
    }
  }
  // Both answer in their own order with what they were asked, backwards; nobody else's answer may
  // come.
  for (Peer *remote : {&first, &second}) {
    std::vector<QuillMessage> requests;
    for (int count = 0; count < 100; ++count) {
      requests.push_back(remote->receive());
    }
    for (auto request = requests.rbegin(); request != requests.rend(); ++request) {
      remote->send(QuillMessage::initWithReplyMessageForSignMessage(
          /*status=*/true, request->messageID, *request->dataToSign));
    }
  }
  for (std::size_t index = 0; index < askers.size(); ++index) {
    for (const QuillMessage &request : sent[index]) {
      const auto answer =
          askers[index].connection->await(*request.messageID, client::Patience::lasting(kPatience));
      ASSERT_TRUE(answer);
      EXPECT_EQ(answer->signedData, request.dataToSign);
    }
    EXPECT_FALSE(askers[index].connection->take()) << "each has exactly one answer";
  }
}

TEST_F(Daemon, CarriesFramesOfEverySize) {
  Peer remote = holder({&otherRSAIdentity()});
  Peer asker = Peer::local();
  const std::size_t empty = protocol::frameOf(signRequest(otherRSAIdentity(), {})).size();
  // A frame's length grows with the PIN by one each; each crosses the relay in both directions,
  // alone and with another one right behind it.
  for (const std::size_t length : {std::size_t{1000}, std::size_t{16383}, std::size_t{16384},
                                   std::size_t{16385}, std::size_t{16390}, std::size_t{16393},
                                   std::size_t{32768}, std::size_t{32769}, std::size_t{1} << 20}) {
    QuillMessage request = signRequest(otherRSAIdentity(), {});
    request.PIN = SecretText(std::string(length - empty, '7'));
    ASSERT_EQ(protocol::frameOf(request).size(), length);
    const QuillMessage behind = signRequest(otherRSAIdentity(), Bytes{1});
    asker.send(request);
    asker.send(behind);
    EXPECT_EQ(remote.receive().PIN->reveal().size(), length - empty) << length;
    EXPECT_EQ(remote.receive().messageID, behind.messageID) << length;
    const Bytes large(length / 2, 0x55);
    remote.send(QuillMessage::initWithReplyMessageForSignMessage(/*status=*/true, request.messageID,
                                                                 large));
    remote.send(QuillMessage::initWithReplyMessageForSignMessage(/*status=*/true, behind.messageID,
                                                                 Bytes{2}));
    EXPECT_EQ(asker.receive().signedData, large) << length;
    EXPECT_EQ(asker.receive().signedData, Bytes{2}) << length;
  }
}

TEST_F(Daemon, TellsAFailedClientBeforeItHangsUp) {
  Peer holder = Daemon::holder({&otherRSAIdentity()});
  Peer other = Peer::remote();
  const Bytes others = *other.connect(rsaIdentity().key).challenge;
  struct Case {
    const char *what;
    Bytes (*sign)(const Bytes &own, const Bytes &others);
    const crypto::Identity &as;
  };
  const Case kCases[] = {
      {"another key",
       [](const Bytes &own, const Bytes &) { return *otherRSAIdentity().key.signRawPKCS1(own); },
       rsaIdentity()},
      {"another certificate",
       [](const Bytes &own, const Bytes &) { return *rsaIdentity().key.signRawPKCS1(own); },
       otherRSAIdentity()},
      {"another connection's challenge",
       [](const Bytes &, const Bytes &foreign) { return *rsaIdentity().key.signRawPKCS1(foreign); },
       rsaIdentity()},
      {"an elliptic-curve key",
       [](const Bytes &own, const Bytes &) { return *ecIdentity().key.signDigestECDSA(own); },
       ecIdentity()},
  };
  for (const Case &row : kCases) {
    ASSERT_TRUE(holder.insert({&otherRSAIdentity()}));
    pair(row.as.key.publicKey().type() == crypto::KeyType::ec ? ecIdentity().key
                                                              : rsaIdentity().key);
    Peer remote = Peer::remote();
    const Bytes challenge = *remote.connect(row.as.key).challenge;
    const QuillMessage reply = remote.ask(QuillMessage::initCommandMessageAuthenticateWithSignature(
        row.sign(challenge, others), row.as.certificate.der()));
    EXPECT_FALSE(reply.status) << row.what;
    EXPECT_TRUE(remote.isEnded()) << row.what;
    EXPECT_TRUE(isMarkerGone()) << "the end of any remote connection withdraws the card";
  }
  EXPECT_EQ(other.ask(QuillMessage::initCommandMessageGetCertificates()).status, true);
}

// A peer below the level of messages.
class RawPeer {
 public:
  explicit RawPeer(std::uint16_t port)
      : socket(client::dial(client::kLoopbackHost, port, client::Patience::lasting(kPatience),
                            nullptr)),
        channel(*crypto::TlsContext::client(), crypto::TlsChannel::Role::client, socket.get()) {
    EXPECT_TRUE(
        eventually([&] { return channel.handshake() == crypto::TlsChannel::Result::done; }));
  }

  base::Descriptor socket;
  crypto::TlsChannel channel;
};

TEST_F(Daemon, NoticesEveryWayInWhichARemoteVanishes) {
  const auto insertCard = [] {
    // by a local client, whose own end leaves the card alone
    EXPECT_TRUE(Peer::local().insert({&otherRSAIdentity()}));
    EXPECT_TRUE(isMarkerThere());
  };
  const auto peer = std::make_unique<RawPeer>(client::kPublicPort);
  insertCard();
  shutdown(peer->socket.get(), SHUT_WR);
  EXPECT_TRUE(isMarkerGone()) << "FIN without close_notify";

  const auto reset = std::make_unique<RawPeer>(client::kPublicPort);
  insertCard();
  const linger hard{1, 0};
  setsockopt(reset->socket.get(), SOL_SOCKET, SO_LINGER, &hard, sizeof(hard));
  reset->socket.close();
  EXPECT_TRUE(isMarkerGone()) << "reset";
  EXPECT_TRUE(daemon->hasSaid("failed: Connection reset by peer")) << daemon->output();

  const auto garbage = std::make_unique<RawPeer>(client::kPublicPort);
  insertCard();
  EXPECT_EQ(send(garbage->socket.get(), "no record of TLS", 16, 0), 16);
  EXPECT_TRUE(isMarkerGone()) << "a broken record";

  insertCard();
  const base::Descriptor plain =
      client::dial(client::kLoopbackHost, client::kPublicPort, client::Patience{}, nullptr);
  EXPECT_EQ(send(plain.get(), "GET / HTTP/1.0\r\n\r\n", 18, 0), 18);
  EXPECT_TRUE(daemon->hasSaid("failed: Protocol error")) << daemon->output();
  EXPECT_TRUE(isMarkerThere()) << "a handshake that fails leaves the card alone";
  EXPECT_TRUE(hasLogged("worker is not local removing smartcard"));
}

// The daemon's own descriptors, to look at their options.
std::vector<base::Descriptor> socketsOf(pid_t process, std::uint16_t port) {
  std::vector<base::Descriptor> found;
  const base::Descriptor pidfd(static_cast<int>(syscall(SYS_pidfd_open, process, 0)));
  for (int number = 3; number < 64; ++number) {
    base::Descriptor copy(static_cast<int>(syscall(SYS_pidfd_getfd, pidfd.get(), number, 0)));
    sockaddr_in6 peer{};
    socklen_t size = sizeof(peer);
    sockaddr_in6 own{};
    socklen_t ownSize = sizeof(own);
    if (copy.isOpen() && getpeername(copy.get(), reinterpret_cast<sockaddr *>(&peer), &size) == 0 &&
        getsockname(copy.get(), reinterpret_cast<sockaddr *>(&own), &ownSize) == 0 &&
        ntohs(own.sin6_port) == port) {
      found.push_back(std::move(copy));
    }
  }
  return found;
}

TEST_F(Daemon, FindsASilentPeerByKeepalive) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "another process's sockets are for root to see";
  }
  const Peer remote = Peer::remote();
  const Peer local = Peer::local();
  for (const std::uint16_t port : {client::kPublicPort, client::kLoopbackPort}) {
    const auto sockets = socketsOf(daemon->id(), port);
    ASSERT_EQ(sockets.size(), 1U);
    const auto option = [&](int level, int name) {
      int value = -1;
      socklen_t size = sizeof(value);
      getsockopt(sockets[0].get(), level, name, &value, &size);
      return value;
    };
    EXPECT_EQ(option(SOL_SOCKET, SO_KEEPALIVE), 1);
    EXPECT_EQ(option(IPPROTO_TCP, TCP_KEEPIDLE), 15);
    EXPECT_EQ(option(IPPROTO_TCP, TCP_KEEPINTVL), 15);
    EXPECT_EQ(option(IPPROTO_TCP, TCP_KEEPCNT), 15);
    EXPECT_EQ(option(IPPROTO_TCP, TCP_NODELAY), 1);
  }
}

TEST_F(Daemon, HandlesWhatCameRightBeforeThePeersEnd) {
  RawPeer remote(client::kPublicPort);
  const QuillMessage insert =
      QuillMessage::initCommandMessageInsertSmartCardWithCertificates(protocol::makeCardList({}));
  const CleansedBytes frame = protocol::frameOf(insert);
  EXPECT_EQ(remote.channel.encryptRecord(frame), frame.size());
  remote.channel.sayGoodbye();
  EXPECT_EQ(remote.channel.flush(), crypto::TlsChannel::Result::done);
  EXPECT_TRUE(hasLogged("Command: 2")) << "the insert was answered";
  EXPECT_TRUE(isMarkerGone()) << "and then withdrawn";
}

TEST_F(Daemon, DebugModeTakesEffectAtOnceAndWritesItsFile) {
  Peer asker = Peer::local();
  asker.ask(QuillMessage::initCommandMessageGetCertificates());
  EXPECT_EQ(read("/tmp/kfy/Keyferry.log"), "");
  succeed("kfyctl", {"debug", "on"});
  asker.ask(QuillMessage::initCommandMessageGetCertificates());
  const std::string log = read("/tmp/kfy/Keyferry.log");
  EXPECT_THAT(log, HasSubstr("Command: QuillCommandGetCertificates\n"));
  EXPECT_TRUE(daemon->hasSaid("QuillCommandGetCertificatesString received"));
  succeed("kfyctl", {"debug", "off"});
  asker.ask(QuillMessage::initCommandMessageGetCertificates());
  EXPECT_EQ(read("/tmp/kfy/Keyferry.log"), log);
  succeed("kfyctl", {"defaults", "write", "debugLogging", "true"});
  asker.ask(QuillMessage::initCommandMessageGetCertificates());
  EXPECT_GT(read("/tmp/kfy/Keyferry.log").size(), log.size());
}

TEST_F(Daemon, WaitsForAListingToolThatComesToItself) {
  // First the tool is missing, then it hangs, prints nothing, nonsense, and then what it should.
  succeed("kfyctl", {"defaults", "write", "pairingToolSeconds", "1"});
  const std::string listing = succeed("sc_auth", {"identities"});
  write("/listing", listing);
  std::filesystem::remove(at("/usr/sbin/sc_auth"));
  Peer remote = Peer::remote();
  Peer local = Peer::local();
  remote.send(
      QuillMessage::initCommandMessageConnectWithCertificate({publicKeyHash(rsaIdentity().key)}));
  // The queue is blocked meanwhile: this one's answer comes after the other's.
  ASSERT_TRUE(hasLogged("no paired identity found yet with no output."));
  replaceListingTool(
      "n=$(cat runs 2>/dev/null || echo 0)\necho $((n + 1)) >runs\n"
      "case $n in\n0) sleep 60 ;;\n1) ;;\n2) echo nonsense ;;\n"
      "*) cat ../listing ;;\nesac\n");
  local.send(QuillMessage::initCommandMessageGetCertificates());
  EXPECT_FALSE(local.connection->receive(client::Patience::lasting(std::chrono::seconds(1))));
  EXPECT_EQ(remote.receive().selectedCertificateHash, publicKeyHash(rsaIdentity().key));
  EXPECT_TRUE(local.receive().status);
  EXPECT_EQ(read("/var/runs"), "4\n");
  EXPECT_TRUE(hasLogged("no paired identity found yet. waiting for 1 second"));
}

class Start : public Machine {};

TEST_F(Start, WithoutAnIdentityEndsWithStatus255) {
  succeed("kfyctl", {"debug", "on"});
  const Outcome outcome = run("kfyd", {});
  EXPECT_EQ(outcome.status, 255);
  EXPECT_EQ(
      outcome.output,
      "Starting Listener\nsetting up listener\nSetting up listener\ncreate and start listener\n"
      "SSL identity not specified\nlistener could not be set up.\nno\n"
      "error setting up listener. exiting.\n");
  EXPECT_EQ(read("/var/log/unified.log"),
            "kfy:setting up listener\nkfy:Setting up listener\nkfy:create and start listener\n"
            "kfy:SSL identity not specified\nkfy:listener could not be set up.\n"
            "kfy:error setting up listener. exiting.\n");
}

TEST_F(Start, WithABusyPortGoesOnWithTheOtherListener) {
  makeServerIdentity();
  const base::Descriptor busy(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const int reuse = 1;  // the test before this one had connections on this port
  setsockopt(busy.get(), SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof(reuse));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(client::kPublicPort);
  ASSERT_EQ(bind(busy.get(), reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
  ASSERT_EQ(listen(busy.get(), 1), 0);
  daemon = start("kfyd", {});
  EXPECT_TRUE(daemon->hasSaid("kfyd: listener (tcp) failed: Address already in use\n"));
  EXPECT_TRUE(daemon->hasSaid("Listener on port 4117 (tcp) ready!"));
  EXPECT_TRUE(Peer::local().ask(QuillMessage::initCommandMessageGetCertificates()).status);
}

}  // namespace
}  // namespace system_tests
