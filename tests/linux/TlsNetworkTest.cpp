#include <malloc.h>

#include <array>

#include "linux/NetworkTest.hpp"

namespace platform_linux {
namespace {

TEST_F(Network, AcceptsWithKeepaliveAndWithoutDelayAndHandsNothingOn) {
  parameters.host = "::";  // which takes IPv4 as well
  parameters.keepaliveIdleSeconds = 15;
  parameters.keepaliveIntervalSeconds = 16;
  parameters.keepaliveCount = 17;
  listener.reset();
  const int listening = nextDescriptor();
  listen();
  establish();
  EXPECT_EQ(connection->peer().host, "127.0.0.1");
  EXPECT_EQ(fcntl(listening, F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(fcntl(accepted, F_GETFD), FD_CLOEXEC);
  for (const auto &[level, name, expected] : {std::array{SOL_SOCKET, SO_KEEPALIVE, 1},
                                              {IPPROTO_TCP, TCP_KEEPIDLE, 15},
                                              {IPPROTO_TCP, TCP_KEEPINTVL, 16},
                                              {IPPROTO_TCP, TCP_KEEPCNT, 17},
                                              {IPPROTO_TCP, TCP_NODELAY, 1}}) {
    int value = -1;
    socklen_t size = sizeof value;
    EXPECT_EQ(getsockopt(accepted, level, name, &value, &size), 0);
    EXPECT_EQ(value, expected) << name;
  }
}

TEST_F(Network, TellsWhoseATakenPortIsAndTakesItAgain) {
  establish();
  const auto port = listener->port();
  EXPECT_EQ(network.ownerOfPort(port), "test_linux (process " + std::to_string(getpid()) + ")");
  parameters.port = std::to_string(port);
  auto first = std::move(listener);
  listen(10s, "not listening EADDRINUSE");
  listener.reset();
  first.reset();
  EXPECT_EQ(network.ownerOfPort(port), std::nullopt) << "a connection does not listen";
  listen();
  EXPECT_EQ(listener->port(), port);
  parameters.host = "no address";
  listen(10s, "not listening EINVAL");
}

TEST_F(Network, ResetReportsFailedAndThenEndsTheStream) {
  establish();
  sendFromClient("hello there");
  fakes::reset(client->socket);
  expect("hello there, failed ECONNRESET, end ECONNRESET");
  send(1);
  EXPECT_EQ(heard, "");
  expect("sent ECONNRESET");
  connection->cancel();
  connection->receive([this](const platform::Chunk &) { tell("more"); });
  expect("");
}

TEST_F(Network, CancelDeliversWhatWasSentAndTellsOnALaterEvent) {
  establish();
  constexpr std::size_t kSize = 3000000;  // more than the sockets take at once
  send(kSize);
  send(kSize);
  connection->cancel();
  connection->cancel();
  sendFromClient("is not heard");  // nor may it reset the connection
  readAlways(*connection);
  const auto cancelled = std::move(connection);
  EXPECT_EQ(heard, "");
  EXPECT_EQ(readToEnd().size(), 2 * kSize);
  expect("cancelled, sent, sent");
  cancelled->send({}, [this](int error) { tell("sent", error); });
  expect("sent EPIPE");
}

TEST_F(Network, PeerThatHasEndedIsStillAnswered) {
  establish();
  shutdown(client->socket.get(), SHUT_WR);
  expect("end");
  send(2);
  send(0);
  expect("sent, sent");
  EXPECT_EQ(connection->unsentBytes(), 0U);
  EXPECT_TRUE(isOpen(accepted));
  connection->cancel();
  EXPECT_EQ(readToEnd(), "xx");
  expect("cancelled");
  EXPECT_FALSE(isOpen(accepted)) << "nobody is waited for";
}

// Whether the text stands on this process's heap. It is given in reverse and short enough for a
// string without memory of its own, so that nothing of the test itself is found.
bool isOnHeap(std::string_view reversed) {
  const std::string text(reversed.rbegin(), reversed.rend());
  const std::size_t size = mallinfo2().arena;
  const std::string_view heap(static_cast<const char *>(sbrk(0)) - size, size);
  return heap.find(text) != std::string_view::npos;
}

TEST_F(Network, LeavesNothingThatWasDeliveredInMemory) {
  constexpr std::string_view kReversed = "1d72-f3b8 NIP e";
  establish();
  bool isDelivered = false;
  connection->receive([&](const platform::Chunk &chunk) {
    isDelivered = !chunk.content.empty();
#ifndef __SANITIZE_ADDRESS__  // whose heap is elsewhere
    EXPECT_TRUE(isOnHeap(kReversed));
#endif
  });
  std::array<char, 200 + kReversed.size()> text{};
  std::ranges::reverse_copy(kReversed, text.begin() + 200);
  sendFromClient({text.data(), text.size()});
  runUntil([&] { return isDelivered; });
  EXPECT_FALSE(isOnHeap(kReversed));
}

TEST_F(Network, PeerThatDoesNotReadIsNotReadFromAndCompletesEverySendOnce) {
  establish();
  constexpr std::size_t kMany = 40;
  std::size_t completions = 0;
  for (std::size_t count = 0; count < kMany; ++count) {
    connection->send(CleansedBytes(1000000), [&](int) { ++completions; });
  }
  runUntil([&] { return connection->unsentBytes() != kMany * 1000000; });
  EXPECT_EQ(connection->unsentBytes(), kMany * 1000000 - 4 * crypto::kTlsRecordBytes) << "a turn's";
  sendFromClient("heard later");
  settle();
  EXPECT_LT(completions, kMany);
  CleansedBytes buffer(crypto::kTlsRecordBytes + 8);
  runUntil([&] {
    ByteView chunk;
    while (client->channel.readChunk(buffer, chunk) == TlsChannel::Result::done) {
    }
    const bool isMuch = connection->unsentBytes() > std::size_t{256} * 1024;
    EXPECT_TRUE(!isMuch || heard.empty());
    return !isMuch;
  });
  expect("heard later");
  client->socket.close();
  runUntil([this] { return !heard.empty(); });
  EXPECT_EQ(completions, kMany) << "each exactly once, whether it left or not";
}

// What it sent before is read all the same.
TEST_F(Network, LostWriteIsToldWhenAllIsRead) {
  establish();
  for (int count = 0; count < 100; ++count) {
    connection->countRejection();  // so that the loss is not met by reading
  }
  sendFromClient("last words");
  fakes::reset(client->socket);
  send(10);
  expect("sent ECONNRESET");
  expect("last words, failed ECONNRESET, end ECONNRESET");
}

}  // namespace
}  // namespace platform_linux
