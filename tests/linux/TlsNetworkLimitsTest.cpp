#include <poll.h>
#include <sys/fsuid.h>
#include <sys/resource.h>
#include <unistd.h>

#include <thread>

#include "linux/NetworkTest.hpp"

namespace platform_linux {
namespace {

class NetworkLimits : public Network {
 public:
  // True when the other side has closed this socket.
  static bool isClosed(const base::Descriptor &socket) {
    char byte = 0;
    return recv(socket.get(), &byte, 1, MSG_DONTWAIT | MSG_PEEK) == 0 || errno == ECONNRESET;
  }

  void expectRefusal(const platform::Limit &limit) {
    const base::Descriptor refused = dial();
    expect("connection from 127.0.0.1 refused: " + std::string(limit.setting));
    runUntil([&] { return isClosed(refused); });
  }

  // A user's program knocks so many times at once.
  void expectOfKnocks(uid_t user, std::size_t knocks, const std::string &events) {
    std::vector<base::Descriptor> sockets;
    ::setfsuid(user);  // whose the sockets are
    while (sockets.size() < knocks) {
      sockets.push_back(dial());
    }
    ::setfsuid(geteuid());
    expect(events);
  }
};

// The queue is blocked for so long in the middle of a handshake that may take 100 ms.
TEST_F(NetworkLimits, HandshakeDoesNotPayForTheTimeInWhichTheQueueWasBlocked) {
  for (const auto blocked : {150ms, 700ms}) {
    SCOPED_TRACE(blocked.count());
    connection.reset();
    listen(100ms);
    client = std::make_unique<Client>(dial());
    EXPECT_EQ(client->channel.handshake(), TlsChannel::Result::wantsRead);
    pollfd answer{client->socket.get(), POLLIN, 0};  // until it waits for the client's last word
    runUntil([&] { return poll(&answer, 1, 0) == 1; });
    if (blocked < 500ms) {  // the bytes are there, and the time is over
      EXPECT_EQ(client->channel.handshake(), TlsChannel::Result::done);
    }
    std::this_thread::sleep_for(blocked);
    if (blocked > 500ms) {  // nobody had the chance to go on
      queue.context().poll();
      queue.endEvent();
      EXPECT_EQ(client->channel.handshake(), TlsChannel::Result::done);
    }
    expect("ready");
  }
}

TEST_F(NetworkLimits, OldestHandshakeMakesRoomButNoYoungOneAndNoConnection) {
  const std::vector<platform::Limit *> all = {
      &listenerLimits.handshakes, &listenerLimits.handshakesPerSource, &listenerLimits.connections,
      &listenerLimits.connectionsPerSource};
  std::vector<base::Descriptor> silent;
  std::vector<std::pair<std::unique_ptr<Client>, std::shared_ptr<platform::Connection>>>
      established;
  const auto old = std::chrono::steady_clock::now() + 1100ms;
  while (silent.size() < all.size()) {
    silent.push_back(dial());
    settle();
  }
  for (platform::Limit *const limit : all) {
    limit->most = silent.size();
    expectRefusal(*limit);
    limit->most = 9;
  }
  runUntil([&] { return std::chrono::steady_clock::now() > old; });
  for (std::size_t each = 0; each < all.size(); ++each) {
    EXPECT_FALSE(isClosed(silent[each]));
    const bool isOfHandshakes = each < 2;  // which grow less by one in each round
    all[each]->most = isOfHandshakes ? silent.size() - each : silent.size();
    client = std::make_unique<Client>(dial());
    shakeHands();
    expect("handshake of 127.0.0.1 abandoned: " + std::string(all[each]->setting) + ", ready");
    EXPECT_TRUE(isClosed(silent[each]));
    established.emplace_back(std::move(client), std::move(connection));
    all[each]->most = 9;
  }
  for (platform::Limit *const limit :
       {&listenerLimits.connections, &listenerLimits.connectionsPerSource}) {
    limit->most = established.size();
    expectRefusal(*limit);
    limit->most = 9;
  }
  for (const auto &each : established) {
    send(*each.first, "alive");
    expect("alive");
  }
}

TEST_F(NetworkLimits, EveryEndGivesThePlaceBack) {
  listenerLimits.connections.most = 1;
  const std::vector<std::pair<std::string, std::function<void()>>> ends = {
      {"end",
       [this] {
         client->socket.close();
         runUntil([this] { return !heard.empty(); });
         connection.reset();
       }},
      {"cancelled", [this] { connection->cancel(); }},
      {"", [this] { connection.reset(); }},
      {"connection from 127.0.0.1 dropped: frame, failed EMSGSIZE, end EMSGSIZE",
       [this] { connection->setHeldBytes((2 << 20) + 1, 0); }},
      {"connection from 127.0.0.1 dropped: unsent, failed ENOBUFS, sent ENOBUFS, end ENOBUFS",
       [this] {
         limits.unsentBytes.most = 99999;
         send(100000);
         EXPECT_EQ(heard, "connection from 127.0.0.1 dropped: unsent") << "the end comes later";
       }},
  };
  for (const auto &[told, end] : ends) {
    SCOPED_TRACE(told);
    establish();
    end();
    client->socket.close();
    expect(told);
    runUntil([this] { return !isOpen(accepted); });
  }
}

TEST_F(NetworkLimits, CountsUsersOfThisMachineAndLeavesRootOut) {
  parameters.isLoopback = true;
  parameters.host = "::";
  listen(100ms);
  listenerLimits.connectionsPerSource.most = 1;
  const uid_t user = getuid() == 0 ? 65534 : getuid();
  const std::string refused =
      "connection from 127.0.0.1 of user " + std::to_string(user) + " refused: ";
  const std::string silent = "no handshake ETIMEDOUT";  // it never speaks
  expectOfKnocks(user, 3, refused + "ofSource, " + refused + "ofSource, " + silent);
  if (getuid() == 0) {
    expectOfKnocks(0, 3, silent + ", " + silent + ", " + silent);
  }
  listenerLimits.users.emplace();
  expectOfKnocks(user, 1, refused + "localUsers");
  dial().close();
  expect("connection from 127.0.0.1 of unknown user refused: localUsers");
  listenerLimits.users->push_back(user);
  expectOfKnocks(user, 1, silent);
}

TEST_F(NetworkLimits, TheOneThatHoldsMostGoesEvenWhileItCloses) {
  limits.bufferedBytes.most = 20 << 20;
  establish();
  connection->setHeldBytes(2 << 20, 0);  // which goes with its connection
  const auto closing = std::move(client);
  establish();
  const auto firstClient = std::move(client);
  send(19 << 20);
  connection.reset();
  establish();
  connection->setHeldBytes(2 << 20, 0);
  connection->send(CleansedBytes(10 << 20), [](int) {});
  expect("connection from 127.0.0.1 dropped: all, sent ENOBUFS");
}

// The first peer neither reads nor ends when its connection closes, the second ends: only the first
// is waited for, and not for long. The third reads nothing, the fourth a little now and then.
TEST_F(NetworkLimits, PeerThatDoesNothingIsNotWaitedForForEver) {
  limits.stalledOutput.most = 1;
  establish();
  const auto silent = std::move(client);
  const int lingering = accepted;
  connection->cancel();
  expect("cancelled");
  establish();
  connection->cancel();
  client->socket.close();
  runUntil([this] { return !isOpen(accepted); });
  EXPECT_TRUE(isOpen(lingering));
  heard.clear();

  establish();
  const auto reader = std::move(client);
  const auto slow = std::move(connection);
  slow->send(CleansedBytes(40000000), [](int) {});
  establish();
  connection->send(CleansedBytes(40000000), [](int) {});
  std::vector<char> taken(1 << 20);
  runUntil([&] {
    (void)recv(reader->socket.get(), taken.data(), 4096, MSG_DONTWAIT);
    return !heard.empty();
  });
  expect("connection from 127.0.0.1 dropped: stalled, failed ETIMEDOUT, end ETIMEDOUT");
  runUntil([&] { return !isOpen(lingering); });
}

TEST_F(NetworkLimits, RestsAfterAHundredRejections) {
  establish();
  for (int count = 0; count < 100; ++count) {
    connection->countRejection();
  }
  queue.postAfter(90ms, [this] { tell("90 ms later"); });
  sendFromClient("x");
  expect("90 ms later, x");
}

TEST_F(NetworkLimits, LeavesDescriptorsForFilesAndAcceptsAgain) {
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  std::vector<base::Descriptor> others(16);  // so that a quarter is enough for a sanitizer's pipes
  std::ranges::generate(others, [] { return base::Descriptor(::dup(STDERR_FILENO)); });
  for (int round = 0; round < 2; ++round) {
    connection.reset();
    client = std::make_unique<Client>(dial());
    rlimit small = before;
    small.rlim_cur = static_cast<rlim_t>(nextDescriptor()) + 4;  // less than a quarter is left
    setrlimit(RLIMIT_NOFILE, &small);
    expect("connections on port " + std::to_string(listener->port()) + " wait: RLIMIT_NOFILE");
    setrlimit(RLIMIT_NOFILE, &before);
    shakeHands();
    expect("ready");
  }
}

}  // namespace
}  // namespace platform_linux
