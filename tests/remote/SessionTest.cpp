#include "remote/Session.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <functional>

#include "fakes/TemporaryFolder.hpp"
#include "fakes/TlsServer.hpp"
#include "remote/AuthenticationKey.hpp"

namespace remote {
namespace {

using fakes::ServedConnection;
using fakes::TlsServer;

// A session of the real loop with one machine, which the test plays.
class ServedSession : public testing::Test {
 protected:
  using Serve = std::function<void(ServedConnection &)>;

  ServedSession() {
    folder_.write("key.pem", fakes::pemOf(cardKey_));
    keys_ = KeyRing::load(std::vector{folder_ / "key.pem"}, {}, hash_,
                          [](const std::string &, int, Error *) { return std::nullopt; });
  }

  // Serves until a signal or until the machine is given up.
  SessionEnd session(const Serve &serve,
                     const std::function<void(const TlsServer &, ConnectCommand &)> &prepare) {
    TlsServer server(serve);
    ConnectCommand command;
    command.machines = {{"127.0.0.1", server.port()}};
    command.withoutConsent = true;
    prepare(server, command);
    return serveMachines(command, knownHosts_, keys_.value(), authentication_, terminal_, stop_);
  }

  static void pin(const TlsServer &server, ConnectCommand &command) {
    command.fingerprint = server.certificate().sha256();
  }

  static void end() { (void)::kill(::getpid(), SIGTERM); }

  QuillMessage connectReply(const QuillMessage &request, std::optional<Bytes> challenge) const {
    auto reply = QuillMessage::initWithReplyMessageForCommand(QuillCommandConnect, /*status=*/true,
                                                              request.messageID);
    reply.selectedCertificateHash = hash_;
    reply.challenge = std::move(challenge);
    return reply;
  }

  void approve(ServedConnection &connection, const QuillMessage &request) const {
    connection.send(QuillMessage::initWithReplyMessageForCommand(request.command, /*status=*/true,
                                                                 request.messageID));
  }

  void serveUntilInserted(ServedConnection &connection) const {
    ASSERT_TRUE(connection.handshake());
    const Bytes challenge(16, 0x5A);
    const auto connect = connection.receive().value();
    ASSERT_EQ(connect.certificateArray, (QuillMessage::CertificateArray{hash_}));
    connection.send(connectReply(connect, challenge));
    const auto authenticate = connection.receive().value();
    const auto certificate =
        crypto::Certificate::fromDER(authenticate.certificateUsedToAuthenticate.value());
    ASSERT_EQ(publicKeyHashOf(certificate.value().publicKey().value()), hash_);
    ASSERT_TRUE(
        certificate->publicKey()->verifyRawPKCS1(*authenticate.challengeSignature, challenge));
    approve(connection, authenticate);
    const auto insert = connection.receive().value();
    ASSERT_EQ(insert.certificates->entries().size(), 1U);
    ASSERT_EQ(insert.certificates->entries()[0].certificateSHA1, cardKey_.certificate.sha1());
    approve(connection, insert);
  }

  std::optional<QuillMessage> signWith(ServedConnection &connection, const Bytes &hash) const {
    connection.send(QuillMessage::initCommandMessageSignData(Bytes(32, 3), hash, SecretText("")));
    return connection.receive();
  }

  const StopSignal stop_;  // before the first thread
  fakes::TemporaryFolder folder_;
  crypto::Identity authentication_ = authenticationKey(folder_.path()).value();
  Bytes hash_ = publicKeyHashOf(authentication_.key.publicKey()).value();
  crypto::Identity cardKey_ = fakes::makeIdentity("card key");
  std::optional<KeyRing> keys_;
  KnownHosts knownHosts_{folder_ / "known_hosts"};
  Terminal terminal_{base::Descriptor()};
};

TEST_F(ServedSession, InsertsSignsAndWithdrawsTheCardAtASignal) {
  const auto ended = session(
      [&](ServedConnection &connection) {
        serveUntilInserted(connection);
        const auto reply = signWith(connection, cardKey_.certificate.sha1());
        ASSERT_TRUE(reply);
        EXPECT_TRUE(reply->status);
        EXPECT_FALSE(reply->signedData.value().empty());
        EXPECT_FALSE(signWith(connection, Bytes(20, 9)).value().status);
        end();
        const auto remove = connection.receive();
        ASSERT_TRUE(remove);
        EXPECT_EQ(remove->command, QuillCommandRemove);
        approve(connection, *remove);
        EXPECT_FALSE(connection.receive());
      },
      pin);
  EXPECT_TRUE(ended.bySignal && ended.mayClearUp);
}

TEST_F(ServedSession, SignsNothingButAChallengeForItsOwnKey) {
  struct Case {
    const char *name;
    std::function<void(QuillMessage &)> change;
  };
  for (const Case &row :
       {Case{"fifteen bytes", [](QuillMessage &reply) { reply.challenge = Bytes(15, 1); }},
        Case{"seventeen bytes", [](QuillMessage &reply) { reply.challenge = Bytes(17, 1); }},
        Case{"a DigestInfo", [](QuillMessage &reply) { reply.challenge = Bytes(51, 1); }},
        Case{"none", [](QuillMessage &reply) { reply.challenge.reset(); }},
        Case{"another key", [](QuillMessage &reply) { reply.selectedCertificateHash = Bytes(20); }},
        Case{"no user", [](QuillMessage &reply) { reply.status = false; }}}) {
    SCOPED_TRACE(row.name);
    (void)session(
        [&](ServedConnection &connection) {
          EXPECT_TRUE(connection.handshake());
          auto reply = connectReply(connection.receive().value(), Bytes(16, 1));
          row.change(reply);
          connection.send(reply);
          EXPECT_FALSE(connection.receive()) << "something was sent in answer to the challenge";
          end();
        },
        pin);
  }
}

TEST_F(ServedSession, SendsNothingToAServerThatHasChangedSinceItWasKnown) {
  std::size_t received = 1;
  const auto ended = session(
      [&](ServedConnection &connection) {
        (void)connection.handshake();
        EXPECT_FALSE(connection.receive());
        received = connection.received();
      },
      [&](const TlsServer &server, ConnectCommand &) {
        ASSERT_TRUE(knownHosts_.add({"127.0.0.1", server.port()}, Fingerprint(32, 1)));
      });
  EXPECT_FALSE(ended.bySignal);
  EXPECT_EQ(received, 0U);
}

}  // namespace
}  // namespace remote
