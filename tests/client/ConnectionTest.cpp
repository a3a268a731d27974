#include "client/Connection.hpp"

#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <future>

#include "client/PinnedServer.hpp"
#include "fakes/ScriptedDaemon.hpp"

namespace client {
namespace {

using fakes::ServedConnection;

constexpr std::size_t kHalfMiB = std::size_t{384} * 1024;  // and a little more, as JSON

QuillMessage messageOf(int first, std::size_t size) {
  Bytes content(size);
  content[0] = static_cast<std::uint8_t>(first);
  return QuillMessage::initCommandMessageSignData(content, Bytes(20, 2), SecretText(""));
}

void sendMany(ServedConnection &served, int number, std::size_t size) {
  const auto request = served.receive().value();
  for (int count = 1; count <= number; ++count) {
    served.send(messageOf(count, size));
  }
  served.send(QuillMessage::initWithReplyMessageForSignMessage(/*status=*/true, request.messageID,
                                                               Bytes{1}));
}

class ConnectionTest : public testing::Test {
 protected:
  std::unique_ptr<Connection> servedBy(std::function<void(ServedConnection &)> serve) {
    daemon_.emplace(identity_, 0, [serve = std::move(serve)](ServedConnection &connection, int) {
      serve(connection);
    });
    return Connection::open(kLoopbackHost, daemon_->port(),
                            verifierForKeyOf(identity_.certificate));
  }

  crypto::Identity identity_ = fakes::makeIdentity("daemon");
  std::optional<fakes::ScriptedDaemon> daemon_;
};

TEST_F(ConnectionTest, KeepsTheNewestOfWhatNobodyTakesAndNoFrameOfMoreThan16MiB) {
  const auto connection = servedBy([](ServedConnection &served) {
    sendMany(served, 1001, 1);
    sendMany(served, 40, kHalfMiB);
    served.send(messageOf(5, 23 * kHalfMiB));
    served.send(messageOf(6, 33 * kHalfMiB));
    (void)served.receive();
  });
  for (const auto &[number, newest] : {std::pair(999U, 1001), {7U, 40}}) {
    EXPECT_TRUE(connection->request(messageOf(0, 1)));
    Bytes kept;
    while (const auto message = connection->take()) {
      kept.push_back(message->dataToSign.value().front());
    }
    ASSERT_EQ(kept.size(), number);
    EXPECT_EQ(kept.back(), static_cast<std::uint8_t>(newest));
  }
  EXPECT_EQ(connection->receive()->dataToSign->front(), 5);
  EXPECT_FALSE(connection->receive());
  EXPECT_EQ(connection->end()->code, connectionLost);
}

TEST_F(ConnectionTest, SendsAllThatWaitsBeforeItSaysGoodbye) {
  std::promise<void> isSent;
  std::promise<std::size_t> received;
  const auto connection = servedBy([&](ServedConnection &served) {
    isSent.get_future().wait();
    const auto message = served.receive();
    EXPECT_FALSE(served.receive());
    received.set_value(message->dataToSign.value().size());
  });
  ASSERT_TRUE(connection->send(messageOf(1, 23 * kHalfMiB)));
  EXPECT_TRUE(connection->wantsWrite()) << "the system has taken all of it";
  isSent.set_value();
  connection->close({});
  EXPECT_EQ(received.get_future().get(), 23 * kHalfMiB);
  EXPECT_EQ(connection->end()->code, peerEnded);
}

TEST_F(ConnectionTest, NoticesItsEndsAndShowsThem) {
  std::promise<void> hasEnded;
  auto connection = servedBy([&](ServedConnection &served) {
    EXPECT_FALSE(served.receive());
    hasEnded.set_value();
  });
  std::vector<int> values;
  for (const int option :
       {TCP_NODELAY, TCP_KEEPIDLE, TCP_KEEPINTVL, TCP_KEEPCNT, TCP_USER_TIMEOUT}) {
    socklen_t size = sizeof(int);
    ::getsockopt(connection->descriptor(), IPPROTO_TCP, option, &values.emplace_back(), &size);
  }
  EXPECT_EQ(values, (std::vector{1, 15, 15, 3, 60000}));
  connection.reset();
  EXPECT_EQ(hasEnded.get_future().wait_for(std::chrono::seconds(30)), std::future_status::ready);
}

}  // namespace
}  // namespace client
