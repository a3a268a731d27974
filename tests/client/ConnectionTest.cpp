#include "client/Connection.hpp"

#include <gtest/gtest.h>

#include "client/PinnedServer.hpp"
#include "fakes/ScriptedDaemon.hpp"

namespace client {
namespace {

TEST(Connection, KeepsTheNewestOfWhatNobodyTakesAndNeverMoreThanFourMiB) {
  constexpr std::size_t kData = std::size_t{390} * 1024;  // as Base64 in JSON half a MiB and more
  const crypto::Identity identity = fakes::makeIdentity("daemon");
  const fakes::ScriptedDaemon daemon(
      identity, 0, [](fakes::ServedConnection &connection, int /*number*/) {
        const auto request = connection.receive().value();
        for (std::uint8_t number = 1; number <= 40; ++number) {
          connection.send(QuillMessage::initCommandMessageSignData(Bytes(kData, number),
                                                                   Bytes(20, 2), SecretText("")));
        }
        connection.send(QuillMessage::initWithReplyMessageForRemoveStatus(
            /*status=*/true, request.messageID));
        (void)connection.receive();
      });
  const auto connection =
      Connection::open(kLoopbackHost, daemon.port(), judgeByKeyOf(identity.certificate));
  ASSERT_TRUE(connection);
  EXPECT_TRUE(connection->request(QuillMessage::initCommandMessageRemoveSmartCard()));
  Bytes kept;
  while (const auto message = connection->take()) {
    kept.push_back(message->dataToSign.value().front());
  }
  EXPECT_EQ(kept, (Bytes{34, 35, 36, 37, 38, 39, 40}));
}

}  // namespace
}  // namespace client
