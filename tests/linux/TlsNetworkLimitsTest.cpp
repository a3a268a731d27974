#include <gmock/gmock.h>
#include <sys/fsuid.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

#include "linux/NetworkTest.hpp"

namespace platform_linux {
namespace {

using testing::Contains;
using testing::ElementsAre;

class NetworkLimits : public Network {
 public:
  // True when the other side has closed this socket.
  static bool isClosed(const base::Descriptor &socket) {
    char byte = 0;
    return recv(socket.get(), &byte, 1, MSG_DONTWAIT | MSG_PEEK) == 0 || errno == ECONNRESET;
  }

  void expectRefusal(const std::string &consequence) {
    reached.clear();
    const base::Descriptor refused = dial();
    runUntil([&] { return isClosed(refused); });
    EXPECT_THAT(reached, ElementsAre(consequence));
    EXPECT_EQ(failedHandshakes, 0U);
  }

  // A user's program knocks so many times at once. Returns how many knocks came in.
  std::size_t knocksThatComeIn(uid_t user, std::size_t knocks) {
    reached.clear();
    failedHandshakes = 0;
    std::vector<base::Descriptor> sockets;
    ::setfsuid(user);  // whose the sockets are
    while (sockets.size() < knocks) {
      sockets.push_back(dial());
    }
    ::setfsuid(geteuid());
    runUntil([&] { return failedHandshakes + reached.size() == knocks; });
    return failedHandshakes;
  }
};

// The queue is blocked for so long in the middle of a handshake that may take 100 ms.
TEST_F(NetworkLimits, HandshakeDoesNotPayForTheTimeInWhichTheQueueWasBlocked) {
  for (const auto blocked : {150ms, 700ms}) {
    SCOPED_TRACE(blocked.count());
    connection.reset();
    listen(100ms);
    client = dial();
    channel.emplace(*crypto::TlsContext::client(), TlsChannel::Role::client, client.get());
    EXPECT_EQ(channel->handshake(), TlsChannel::Result::wantsRead);
    char byte = 0;  // until it waits for the client's last word
    runUntil([&] { return recv(client.get(), &byte, 1, MSG_DONTWAIT | MSG_PEEK) == 1; });
    if (blocked < 500ms) {  // the bytes are there, and the time is over
      EXPECT_EQ(channel->handshake(), TlsChannel::Result::done);
    }
    std::this_thread::sleep_for(blocked);
    if (blocked > 500ms) {  // nobody had the chance to go on
      queue.context().poll();
      EXPECT_EQ(channel->handshake(), TlsChannel::Result::done);
    }
    runUntil([this] { return connection != nullptr; });
    EXPECT_EQ(failedHandshakes, 0U);
  }
}

TEST_F(NetworkLimits, OldestHandshakeMakesRoomButNoYoungOne) {
  for (platform::Limit *const limit :
       {&listenerLimits.handshakes, &listenerLimits.handshakesPerSource,
        &listenerLimits.connectionsPerSource}) {
    const platform::Limit before = std::exchange(*limit, {1, limit->setting});
    listen(10s);
    const base::Descriptor silent = dial();
    expectRefusal("connection from 127.0.0.1 refused");
    EXPECT_FALSE(isClosed(silent));
    const auto old = std::chrono::steady_clock::now() + 1100ms;
    runUntil([&] { return std::chrono::steady_clock::now() > old; });
    establish();
    EXPECT_TRUE(isClosed(silent));
    EXPECT_THAT(reached, Contains("handshake of 127.0.0.1 abandoned"));
    *limit = before;
    connection.reset();
  }
}

TEST_F(NetworkLimits, RefusesBeforeTheHandshakeWhileEstablishedOnesLive) {
  for (platform::Limit *const limit :
       {&listenerLimits.connections, &listenerLimits.connectionsPerSource}) {
    const platform::Limit before = std::exchange(*limit, {1, limit->setting});
    establish();
    expectRefusal("connection from 127.0.0.1 refused");
    received.clear();
    sendFromClient("alive");
    runUntil([this] { return received == "alive"; });
    *limit = before;
    connection.reset();
  }
}

TEST_F(NetworkLimits, EveryEndGivesThePlaceBack) {
  listenerLimits.connections.most = 1;
  const std::vector<std::function<void()>> ends = {
      [this] { fakes::reset(client); },
      [this] {
        client.close();
        runUntil([this] { return finalError == 0; });
        connection.reset();
      },
      [this] { connection->cancel(); },
      [this] { connection.reset(); },
      [this] {
        limits.frameBytes.most = 1;
        connection->holds(70000, 0);
      },
  };
  for (const auto &end : ends) {
    establish();
    end();
    client.close();
    runUntil([this] {
      settle();
      reached.clear();
      const base::Descriptor next = dial();
      settle();
      return reached.empty();
    });
    connection.reset();
    settle();
  }
}

TEST_F(NetworkLimits, CountsUsersOfThisMachineAndLeavesRootOut) {
  parameters.isLoopback = true;
  listen(100ms);
  listenerLimits.connectionsPerSource.most = 1;
  const uid_t user = getuid() == 0 ? 65534 : getuid();
  const std::string name = "connection from 127.0.0.1 of user " + std::to_string(user) + " refused";
  EXPECT_EQ(knocksThatComeIn(user, 3), 1U);
  EXPECT_EQ(failedHandshake, ETIMEDOUT) << "it never spoke";
  EXPECT_THAT(reached, ElementsAre(name, name));
  EXPECT_EQ(knocksThatComeIn(0, 3), getuid() == 0 ? 3U : 1U);

  listenerLimits.users.emplace();
  EXPECT_EQ(knocksThatComeIn(user, 1), 0U);
  EXPECT_THAT(reached, ElementsAre(name));
  listenerLimits.users->push_back(user);
  EXPECT_EQ(knocksThatComeIn(user, 1), 1U);
}

TEST_F(NetworkLimits, WhatHoldsTooMuchIsLostOnALaterEvent) {
  struct Case {
    const char *name;
    std::function<void()> fill;
    int error;
  };
  const std::vector<Case> cases = {
      {"frame", [this] { connection->holds(70001, 0); }, EMSGSIZE},
      {"unsent", [this] { connection->send(bytes(9000000), [](int) {}); }, ENOBUFS},
      {"both",
       [this] { connection->holds(9999, 60000), connection->send(bytes(7999999), [](int) {}); },
       ENOBUFS},
  };
  limits = {{70000, "frame"}, {8000000, "unsent"}, {8010000, "all"}, {45, "stalled"}};
  for (const Case &each : cases) {
    SCOPED_TRACE(each.name);
    establish();
    runUntil([this] { return !states.empty(); });
    reached.clear();
    each.fill();
    EXPECT_EQ(states.size(), 1U);
    runUntil([this] { return finalError.has_value(); });
    EXPECT_EQ(finalError, each.error);
    EXPECT_EQ(states.back(), std::pair(ConnectionState::failed, each.error));
    EXPECT_THAT(reached, ElementsAre("connection from 127.0.0.1 dropped"));
    states.clear();
    finalError.reset();
    connection.reset();
  }
}

TEST_F(NetworkLimits, TheOneThatHoldsMostGoesEvenWhileItCloses) {
  limits.bufferedBytes.most = 20 << 20;
  establish();
  const base::Descriptor firstClient = std::move(client);
  std::optional<int> sent;
  connection->send(bytes(19 << 20), [&](int error) { sent = error; });
  connection.reset();
  establish();
  settle();  // the sockets have taken what they can
  connection->holds(2 << 20, 0);
  EXPECT_EQ(sent, std::nullopt);
  connection->send(bytes(10 << 20), [](int) {});
  runUntil([&] { return sent.has_value(); });
  EXPECT_EQ(sent, ENOBUFS);
  EXPECT_EQ(finalError, std::nullopt) << "the other one stays";
}

TEST_F(NetworkLimits, PeerThatAcknowledgesNothingIsLost) {
  limits.stalledOutput.most = 1;
  establish();
  connection->send(bytes(40000000), [](int) {});
  runUntil([this] { return finalError.has_value(); });
  EXPECT_EQ(finalError, ETIMEDOUT);
  EXPECT_THAT(reached, ElementsAre("connection from 127.0.0.1 dropped"));
}

TEST_F(NetworkLimits, RestsAfterAHundredRejections) {
  establish();
  std::chrono::steady_clock::time_point last;
  std::function<void()> next = [&] {
    connection->receive([&](const platform::Chunk &chunk) {
      received += base::textOf(chunk.content);
      last = std::chrono::steady_clock::now();
      connection->rejected();
      next();
    });
  };
  next();
  for (int count = 0; count < 101; ++count) {
    sendFromClient("x");
  }
  runUntil([this] { return received.size() >= 100; });
  settle();
  EXPECT_EQ(received.size(), 100U);
  const auto hundredth = last;
  runUntil([this] { return received.size() == 101; });
  EXPECT_GE(last - hundredth, 90ms);
}

TEST_F(NetworkLimits, LeavesDescriptorsForFilesAndAcceptsAgain) {
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  EXPECT_EQ(before.rlim_cur, before.rlim_max) << "raised at the start";
  std::vector<base::Descriptor> files(24);
  for (base::Descriptor &file : files) {
    file = base::Descriptor(::dup(STDERR_FILENO));
  }
  client = dial();
  rlimit small = before;
  small.rlim_cur = static_cast<rlim_t>(client.get()) + 6;  // a quarter of them is more than is left
  setrlimit(RLIMIT_NOFILE, &small);
  runUntil([this] { return !reached.empty(); });
  settle();
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_THAT(reached,
              ElementsAre("connections on port " + std::to_string(listener->port()) + " wait"));
  shakeHands();
}

}  // namespace
}  // namespace platform_linux
