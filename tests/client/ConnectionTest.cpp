#include "client/Connection.hpp"

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <string>

#include "client/PinnedServer.hpp"
#include "fakes/TlsServer.hpp"

namespace client {
namespace {

using fakes::boundToLoopback;
using fakes::makeIdentity;
using fakes::ServedConnection;
using fakes::TlsServer;

bool anyServer(const crypto::Certificate & /*certificate*/) {
  return true;
}

Patience soon() {
  return Patience::lasting(std::chrono::seconds(10));
}

std::unique_ptr<Connection> connectTo(const TlsServer &server, Error *error = nullptr) {
  return Connection::open("127.0.0.1", server.port(), judgeByKeyOf(server.certificate()), soon(),
                          error);
}

QuillMessage signRequest() {
  return QuillMessage::initCommandMessageSignData(Bytes(32, 1), Bytes(20, 2), SecretText(""));
}

QuillMessage signReply(const QuillMessage &request, Bytes signature) {
  return QuillMessage::initWithReplyMessageForSignMessage(true, request.messageID,
                                                          std::move(signature));
}

TEST(Connection, HandsEachResponseToTheRequestThatItAnswers) {
  TlsServer server([](ServedConnection &connection) {
    ASSERT_TRUE(connection.handshake());
    const auto first = connection.receive();
    const auto second = connection.receive();
    ASSERT_TRUE(first && second);
    connection.sendUnit(base::viewOf("[DATA][ENDDATA]"));
    connection.send(QuillMessage::initCommandMessageGetCertificates());
    connection.send(signReply(*second, {2}));
    connection.send(signReply(*first, {1}));
  });
  Error error;
  const auto connection = connectTo(server, &error);
  ASSERT_TRUE(connection) << error.description;
  const QuillMessage first = signRequest();
  const QuillMessage second = signRequest();
  ASSERT_TRUE(connection->send(first));
  ASSERT_TRUE(connection->send(second));
  EXPECT_EQ(connection->await(*first.messageID, soon()).value().signedData, Bytes{1});
  EXPECT_EQ(connection->await(*second.messageID, soon()).value().signedData, Bytes{2});
  EXPECT_EQ(connection->receive(soon()).value().command, QuillCommandGetCertificates);

  EXPECT_FALSE(connection->receive(soon(), &error));
  EXPECT_EQ(error.code, peerEnded) << error.description;
}

TEST(Connection, SendsNothingToAServerWithAnotherKey) {
  std::optional<std::size_t> received;
  TlsServer server([&](ServedConnection &connection) {
    (void)connection.handshake();
    (void)connection.receive();
    received = connection.received();
  });
  Error error;
  const crypto::Identity other = makeIdentity("test server");
  EXPECT_FALSE(Connection::open("127.0.0.1", server.port(), judgeByKeyOf(other.certificate), soon(),
                                &error));
  EXPECT_EQ(error.code, keyNotPinned) << error.description;
  server.join();
  EXPECT_EQ(received, 0U);
}

TEST(Connection, EndsAWaitAtItsDeadlineOrWhenStoppedAndStandsAllTheSame) {
  TlsServer server([](ServedConnection &connection) {
    ASSERT_TRUE(connection.handshake());
    const auto unanswered = connection.receive();
    const auto answered = connection.receive();
    ASSERT_TRUE(answered);
    connection.send(signReply(*answered, {7}));
  });
  const auto connection = connectTo(server);
  ASSERT_TRUE(connection);
  Error error;
  EXPECT_FALSE(
      connection->request(signRequest(), Patience::lasting(std::chrono::milliseconds(20)), &error));
  EXPECT_EQ(error.code, timedOut);

  const base::Descriptor stop(::eventfd(1, EFD_CLOEXEC));
  Patience patience = soon();
  patience.stopDescriptor = stop.get();
  EXPECT_FALSE(connection->receive(patience, &error));
  EXPECT_EQ(error.code, stopped);

  EXPECT_EQ(connection->request(signRequest(), soon()).value().signedData, Bytes{7});
}

TEST(Connection, SaysWhyItCannotBeOpened) {
  std::uint16_t refusing = 0;
  std::uint16_t silent = 0;
  const base::Descriptor bound = boundToLoopback(refusing);
  const base::Descriptor listener = boundToLoopback(silent);
  ASSERT_EQ(::listen(listener.get(), 1), 0);
  TlsServer hangingUp([](ServedConnection &) {});
  struct Case {
    std::string host;
    std::uint16_t port;
    std::chrono::milliseconds time;
    ErrorCode code;
  };
  constexpr std::chrono::seconds kLong(10);
  // a label of 70 characters is refused before anybody is asked
  for (const Case &row : {Case{std::string(70, 'x'), 4116, kLong, cannotResolve},
                          Case{"127.0.0.1", refusing, kLong, unreachable},
                          Case{"127.0.0.1", hangingUp.port(), kLong, handshakeFailed},
                          Case{"127.0.0.1", silent, std::chrono::milliseconds(20), timedOut}}) {
    Error error;
    EXPECT_FALSE(
        Connection::open(row.host, row.port, anyServer, Patience::lasting(row.time), &error));
    EXPECT_EQ(error.code, row.code) << error.description;
  }
}

}  // namespace
}  // namespace client
