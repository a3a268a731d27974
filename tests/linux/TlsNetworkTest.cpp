#include <gmock/gmock.h>
#include <netinet/tcp.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <sstream>

#include "linux/NetworkTest.hpp"

namespace platform_linux {
namespace {

using testing::ElementsAre;

// A peer that falls silent is found by this.
TEST_F(Network, AcceptsWithKeepaliveAndWithoutDelay) {
  parameters.keepaliveIdleSeconds = parameters.keepaliveIntervalSeconds = 15;
  parameters.keepaliveCount = 15;
  listen(10s);
  client = dial();
  const int accepted = ::dup(STDERR_FILENO);  // the next one that is free
  ::close(accepted);
  shakeHands();
  for (const auto &[level, name, expected] : {std::array{SOL_SOCKET, SO_KEEPALIVE, 1},
                                              {IPPROTO_TCP, TCP_KEEPIDLE, 15},
                                              {IPPROTO_TCP, TCP_KEEPINTVL, 15},
                                              {IPPROTO_TCP, TCP_KEEPCNT, 15},
                                              {IPPROTO_TCP, TCP_NODELAY, 1}}) {
    int value = -1;
    socklen_t size = sizeof value;
    EXPECT_EQ(getsockopt(accepted, level, name, &value, &size), 0);
    EXPECT_EQ(value, expected) << name;
  }
}

TEST_F(Network, TellsWhoseATakenPortIs) {
  EXPECT_EQ(network.ownerOfPort(listener->port()),
            "test_linux (process " + std::to_string(getpid()) + ")");
  const auto port = listener->port();
  parameters.port = std::to_string(port);
  auto first = std::move(listener);
  listen(10s);
  EXPECT_EQ(listenerError, EADDRINUSE);
  listener.reset();
  first.reset();
  EXPECT_EQ(network.ownerOfPort(port), std::nullopt);
}

TEST_F(Network, ResetReportsFailedAndThenEndsTheStream) {
  establish();
  sendFromClient("hello there");
  fakes::reset(client);
  runUntil([this] { return finalError.has_value(); });
  EXPECT_EQ(finalError, ECONNRESET);
  EXPECT_THAT(states, ElementsAre(std::pair(ConnectionState::ready, 0),
                                  std::pair(ConnectionState::failed, ECONNRESET)));
  EXPECT_EQ(statesAtEnd, 2U) << "failed comes first";
}

TEST_F(Network, CancelDeliversWhatWasSentAndTellsOnALaterEvent) {
  establish();
  runUntil([this] { return !states.empty(); });
  std::vector<int> completions;
  constexpr std::size_t kSize = 3000000;  // more than the sockets take at once
  for (int count = 0; count < 2; ++count) {
    connection->send(bytes(kSize), [&](int error) { completions.push_back(error); });
  }
  connection->cancel();
  connection.reset();
  EXPECT_EQ(states.size(), 1U);
  EXPECT_EQ(readToEnd().size(), 2 * kSize);
  EXPECT_THAT(completions, ElementsAre(0, 0));
  EXPECT_THAT(states, ElementsAre(std::pair(ConnectionState::ready, 0),
                                  std::pair(ConnectionState::cancelled, 0)));
}

// How often the text stands on this process's heap. It is given in reverse, so that nothing of the
// test itself is counted.
std::size_t timesOnHeap(std::string_view reversed) {
  std::array<char, 64> letters{};
  std::ranges::reverse_copy(reversed, letters.begin());
  const std::string_view text(letters.data(), reversed.size());
  std::ifstream maps("/proc/self/maps");
  std::string line;
  while (std::getline(maps, line) && !line.ends_with("[heap]")) {
  }
  std::uintptr_t start = 0;
  std::uintptr_t end = 0;
  char dash = 0;
  std::istringstream(line) >> std::hex >> start >> dash >> end;
  // NOLINTNEXTLINE(performance-no-int-to-ptr): the system tells addresses as numbers
  const std::string_view heap(reinterpret_cast<const char *>(start), end - start);
  std::size_t times = 0;
  for (auto at = heap.find(text); at != std::string_view::npos; at = heap.find(text, at + 1)) {
    ++times;
  }
  return times;
}

TEST_F(Network, LeavesNothingThatWasDeliveredInMemory) {
  constexpr std::string_view kReversed = "c-1d72-f3b8 NIP eht";
  establish();
  bool isDelivered = false;
  connection->receive([&](const platform::Chunk &chunk) { isDelivered = !chunk.content.empty(); });
  std::array<std::uint8_t, 200 + kReversed.size()> text{};
  std::ranges::reverse_copy(kReversed, text.begin() + 200);
  EXPECT_NE(channel->encryptRecord(text), 0U);
  EXPECT_EQ(channel->flush(), TlsChannel::Result::done);
  runUntil([&] { return isDelivered; });
  EXPECT_EQ(timesOnHeap(kReversed), 0U);
}

TEST_F(Network, PeerThatDoesNotReadIsNotReadFromAndCompletesEverySendOnce) {
  establish();
  int completions = 0;
  for (int count = 0; count < 40; ++count) {
    connection->send(bytes(1000000), [&](int) { ++completions; });
  }
  sendFromClient("heard later");
  settle();
  EXPECT_LT(completions, 40);
  EXPECT_EQ(received, "");
  CleansedBytes buffer(crypto::kTlsRecordBytes + 8);
  runUntil([&] {
    ByteView chunk;
    while (channel->readChunk(buffer, chunk) == TlsChannel::Result::done) {
    }
    return connection->unsentBytes() <= std::size_t{256} * 1024;
  });
  runUntil([this] { return received == "heard later"; });
  client.close();
  runUntil([this] { return finalError.has_value(); });
  EXPECT_EQ(completions, 40) << "each exactly once, whether it left or not";
}

TEST_F(Network, CancelAfterALostWriteIsStillTold) {
  establish();
  runUntil([this] { return !states.empty(); });
  for (int count = 0; count < 100; ++count) {
    connection->rejected();  // so that the loss is not met by reading
  }
  fakes::reset(client);
  std::optional<int> sent;
  connection->send(bytes(10), [&](int error) { sent = error; });
  runUntil([&] { return sent.has_value(); });
  EXPECT_NE(sent, 0);
  connection->cancel();
  runUntil([this] { return states.size() == 2; });
  EXPECT_EQ(states.back(), std::pair(ConnectionState::cancelled, 0));
  EXPECT_EQ(finalError, std::nullopt);
}

}  // namespace
}  // namespace platform_linux
