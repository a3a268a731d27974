#include "linux/network/TlsNetwork.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <optional>
#include <sstream>
#include <thread>

#include "base/Descriptor.hpp"
#include "crypto/TlsChannel.hpp"
#include "fakes/LoopbackSocket.hpp"
#include "fakes/MadeKeys.hpp"

namespace platform_linux {
namespace {

using namespace std::chrono_literals;
using crypto::TlsChannel;
using platform::ConnectionState;
using testing::ElementsAre;

// A listener on a port of its own, and what it and its last connection have reported.
class Network : public testing::Test {
 public:
  Network() {
    parameters.host = "127.0.0.1";
    parameters.port = "0";
    parameters.identity = std::make_shared<const crypto::Identity>(fakes::makeIdentity("server"));
    listen(10s);
  }

  void listen(std::chrono::milliseconds handshakeTime) {
    parameters.limits = [this, handshakeTime] {
      platform::ListenerLimits mine = listenerLimits;
      mine.handshakeTime = handshakeTime;
      return mine;
    };
    listenerError.reset();
    listener = network.createListener(parameters);
    listener->setStateHandler(
        [this](platform::ListenerState, int error) { listenerError = error; });
    listener->setFailedHandshakeHandler(
        [this](const platform::Endpoint &, int error) { failedHandshake = error; });
    listener->setConnectionHandler([this](std::shared_ptr<platform::Connection> made) {
      connection = std::move(made);
      connection->setStateHandler(
          [this](ConnectionState state, int error) { states.emplace_back(state, error); });
      connection->start();
      receiveNext();
    });
    listener->start();
    runUntil([this] { return listenerError.has_value(); });
  }

  void receiveNext() {
    connection->receive([this](const platform::Chunk &chunk) {
      received += base::textOf(chunk.content);
      if (chunk.isFinal) {
        finalError = chunk.errorNumber;
        statesAtEnd = states.size();
      } else if (connection) {
        receiveNext();
      }
    });
  }

  // Runs the queue until the condition holds, ten seconds at most.
  template <typename Condition>
  void runUntil(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (!condition() && std::chrono::steady_clock::now() < deadline) {
      queue.context().run_one_for(1ms);
    }
    EXPECT_TRUE(condition());
  }

  base::Descriptor dial() const {
    base::Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(listener->port());
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(socket.get(), reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    fcntl(socket.get(), F_SETFL, O_NONBLOCK);
    return socket;
  }

  // Connects and lets both sides shake hands.
  void establish() {
    client = dial();
    channel.emplace(*crypto::TlsContext::client(), TlsChannel::Role::client, client.get());
    runUntil([this] { return channel->handshake() == TlsChannel::Result::done && connection; });
  }

  // All that the client gets until its stream ends.
  std::string readToEnd() {
    std::string text;
    CleansedBytes buffer(crypto::kTlsRecordBytes + 8);
    runUntil([&] {
      ByteView chunk;
      const auto result = channel->readChunk(buffer, chunk);
      text += result == TlsChannel::Result::done ? base::textOf(chunk) : "";
      return result == TlsChannel::Result::ended || result == TlsChannel::Result::failed;
    });
    return text;
  }

  void sendFromClient(std::string_view text) {
    EXPECT_EQ(channel->encryptRecord(base::viewOf(text)), text.size());
    EXPECT_EQ(channel->flush(), TlsChannel::Result::done);
  }

  CleansedBytes bytes(std::size_t size) const { return CleansedBytes(size, 'x'); }

  AsioMainQueue queue;
  platform::ConnectionLimits limits{
      {2 << 20, "frame"}, {400 << 20, "unsent"}, {400 << 20, "all"}, 45s};
  platform::ListenerLimits listenerLimits{
      10s, {9, "handshakes"}, {9, "perSource"}, {9, "connections"}, {9, "ofSource"}, {}};
  std::vector<std::string> reached;
  TlsNetwork network{
      queue, [this] { return limits; },
      [this](const platform::ReachedLimit &limit) { reached.push_back(limit.consequence); }};
  platform::ListenerParameters parameters;
  std::unique_ptr<platform::Listener> listener;
  std::shared_ptr<platform::Connection> connection;
  std::optional<int> listenerError;
  std::optional<int> failedHandshake;
  std::optional<int> finalError;
  std::size_t statesAtEnd = 0;
  std::vector<std::pair<ConnectionState, int>> states;
  std::string received;
  base::Descriptor client;
  std::optional<TlsChannel> channel;
};

TEST_F(Network, GivesUpAHandshakeThatTakesTooLong) {
  listen(30ms);
  client = dial();
  runUntil([this] { return failedHandshake.has_value(); });
  EXPECT_EQ(failedHandshake, ETIMEDOUT);
  EXPECT_EQ(connection, nullptr);
  char byte = 0;
  EXPECT_EQ(recv(client.get(), &byte, 1, MSG_DONTWAIT), 0);
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

TEST_F(Network, PeerThatDoesNotReadStopsNobodyAndCompletesEverySendOnce) {
  establish();
  int completions = 0;
  for (int count = 0; count < 100; ++count) {
    connection->send(bytes(1000000), [&](int) { ++completions; });
  }
  sendFromClient("still heard");
  runUntil([&] { return received == "still heard" && completions > 0; });
  EXPECT_LT(completions, 100);
  client.close();
  runUntil([this] { return finalError.has_value(); });
  EXPECT_EQ(completions, 100) << "each exactly once, whether it left or not";
}

}  // namespace
}  // namespace platform_linux
