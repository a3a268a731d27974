#include "client/Connection.hpp"

#include <gtest/gtest.h>
#include <sys/eventfd.h>

#include "client/PinnedServer.hpp"
#include "fakes/ScriptedDaemon.hpp"

namespace client {
namespace {

using fakes::ServedConnection;

Patience soon() {
  return Patience::lasting(std::chrono::seconds(10));
}

QuillMessage signRequest() {
  return QuillMessage::initCommandMessageSignData(Bytes(32, 1), Bytes(20, 2), SecretText(""));
}

TEST(Connection, EndsAWaitAtItsDeadlineOrWhenStoppedAndStandsAllTheSame) {
  const crypto::Identity identity = fakes::makeIdentity("daemon");
  const fakes::ScriptedDaemon daemon(identity, 0, [](ServedConnection &connection, int /*number*/) {
    const auto unanswered = connection.receive();
    const auto answered = connection.receive();
    ASSERT_TRUE(answered);
    connection.send(QuillMessage::initWithReplyMessageForSignMessage(
        /*status=*/true, answered->messageID, Bytes{7}));
  });
  const auto connection =
      Connection::open("127.0.0.1", daemon.port(), judgeByKeyOf(identity.certificate), soon());
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

}  // namespace
}  // namespace client
