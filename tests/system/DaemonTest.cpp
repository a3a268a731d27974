// The daemon over real TLS, with this test as its remote and local clients.

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <set>

#include "base/Descriptor.hpp"
#include "client/Dialing.hpp"
#include "client/PinnedServer.hpp"
#include "crypto/TlsChannel.hpp"
#include "fakes/TlsServer.hpp"
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
  remote.send(QuillMessage::initWithReplyMessageForSignMessage(
      /*status=*/true, request.messageID,
      *otherRSAIdentity().key.signRawPKCS1(*remote.receive().dataToSign)));
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
    const crypto::Identity &signer;
    const crypto::Identity &as;
    bool isOthers = false;
  };
  for (const Case &row :
       {Case{"another key", otherRSAIdentity(), rsaIdentity()},
        Case{"another certificate", rsaIdentity(), otherRSAIdentity()},
        Case{"another connection's challenge", rsaIdentity(), rsaIdentity(), true},
        Case{"an elliptic-curve key", ecIdentity(), ecIdentity()}}) {
    SCOPED_TRACE(row.what);
    ASSERT_TRUE(holder.insert({&otherRSAIdentity()}));
    pair((&row.as == &ecIdentity() ? ecIdentity() : rsaIdentity()).key);
    Peer remote = Peer::remote();
    const Bytes own = *remote.connect(row.as.key).challenge;
    const Bytes &challenge = row.isOthers ? others : own;
    const auto signature = &row.signer == &ecIdentity() ? row.signer.key.signDigestECDSA(challenge)
                                                        : row.signer.key.signRawPKCS1(challenge);
    EXPECT_FALSE(remote
                     .ask(QuillMessage::initCommandMessageAuthenticateWithSignature(
                         *signature, row.as.certificate.der()))
                     .status);
    EXPECT_TRUE(remote.isEnded());
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
  fakes::reset(reset->socket);
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

TEST_F(Daemon, FindsASilentPeerByKeepalive) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "another process's sockets are for root to see";
  }
  const Peer remote = Peer::remote();
  const Peer local = Peer::local();
  std::set<int> ports;
  const base::Descriptor process(static_cast<int>(syscall(SYS_pidfd_open, daemon->id(), 0)));
  for (int number = 3; number < 64; ++number) {
    const base::Descriptor copy(
        static_cast<int>(syscall(SYS_pidfd_getfd, process.get(), number, 0)));
    sockaddr_in6 address{};
    socklen_t size = sizeof(address);
    if (getpeername(copy.get(), reinterpret_cast<sockaddr *>(&address), &size) != 0 ||
        (address.sin6_family != AF_INET && address.sin6_family != AF_INET6)) {
      continue;
    }
    getsockname(copy.get(), reinterpret_cast<sockaddr *>(&address), &size);
    ports.insert(ntohs(address.sin6_port));
    for (const auto &[level, name, expected] : {std::array{SOL_SOCKET, SO_KEEPALIVE, 1},
                                                {IPPROTO_TCP, TCP_KEEPIDLE, 15},
                                                {IPPROTO_TCP, TCP_KEEPINTVL, 15},
                                                {IPPROTO_TCP, TCP_KEEPCNT, 15},
                                                {IPPROTO_TCP, TCP_NODELAY, 1}}) {
      int value = -1;
      size = sizeof(value);
      getsockopt(copy.get(), level, name, &value, &size);
      EXPECT_EQ(value, expected) << name;
    }
  }
  EXPECT_EQ(ports, (std::set<int>{client::kPublicPort, client::kLoopbackPort}));
}

TEST_F(Daemon, DebugModeTakesEffectAtOnceAndWritesItsFile) {
  Peer asker = Peer::local();
  const auto logged = [&] {
    asker.ask(QuillMessage::initCommandMessageGetCertificates());
    return read("/tmp/kfy/Keyferry.log");
  };
  EXPECT_EQ(logged(), "");
  succeed("kfyctl", {"debug", "on"});
  const std::string log = logged();
  EXPECT_THAT(log, HasSubstr("Command: QuillCommandGetCertificates\n"));
  EXPECT_TRUE(daemon->hasSaid("QuillCommandGetCertificatesString received"));
  succeed("kfyctl", {"debug", "off"});
  EXPECT_EQ(logged(), log);
  succeed("kfyctl", {"defaults", "write", "debugLogging", "true"});
  EXPECT_GT(logged().size(), log.size());
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
  std::uint16_t port = client::kPublicPort;
  const base::Descriptor busy = fakes::boundToLoopback(port);
  ASSERT_EQ(listen(busy.get(), 1), 0);
  daemon = start("kfyd", {});
  EXPECT_TRUE(daemon->hasSaid("kfyd: listener (tcp) failed: Address already in use\n"));
  EXPECT_TRUE(daemon->hasSaid("Listener on port 4117 (tcp) ready!"));
  EXPECT_TRUE(Peer::local().ask(QuillMessage::initCommandMessageGetCertificates()).status);
}

}  // namespace
}  // namespace system_tests
