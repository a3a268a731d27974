// Who asks for much at once makes nobody else wait.

#include <thread>

#include "linux/NetworkTest.hpp"

namespace platform_linux {
namespace {

class FairTurn : public Network {
 public:
  void connectAll(std::size_t count) {
    while (clients.size() < count) {
      establish();
      clients.push_back(std::move(client));
      connections.push_back(std::move(connection));
    }
  }

  std::vector<std::unique_ptr<Client>> clients;
  std::vector<std::shared_ptr<platform::Connection>> connections;
};

TEST_F(FairTurn, ReadsOneChunkOfEachConnection) {
  connectAll(2);
  for (int count = 0; count < 50; ++count) {
    send(*clients[0], "a");
  }
  send(*clients[1], "b");
  runUntil([this] { return heard.find('b') != std::string::npos; });
  EXPECT_LE(heard.size(), std::strlen("a, a, a, b"));
  runUntil([this] { return std::ranges::count(heard, 'a') == 50; });
}

// What one of these did took 100 ms: all of them are read only after as long again, others at once.
TEST_F(FairTurn, GivesThoseThatHaveNotAuthenticatedHalfOfTheTime) {
  connectAll(3);
  connections[2]->setAuthenticated(/*isAuthenticated=*/true);
  connections[0]->receive([this](const platform::Chunk &) {
    std::this_thread::sleep_for(100ms);
    tell("a");
    queue.postAfter(100ms, [this] { tell("time"); });
    queue.postAfter(900ms, [this] { tell("too late"); });
  });
  send(*clients[0], "x");
  runUntil([this] { return heard == "a"; });
  send(*clients[1], "b");
  send(*clients[2], "c");
  expect("a, c, time, b");
}

// A step costs a signature: who sends a frame while many shake hands does not wait for all of them.
TEST_F(FairTurn, TakesFewStepsOfAllHandshakes) {
  constexpr int kMany = 30;
  listenerLimits.handshakes.most = listenerLimits.handshakesPerSource.most = kMany;
  listenerLimits.connections.most = listenerLimits.connectionsPerSource.most = kMany + 1;
  establish();
  settle();
  while (clients.size() < kMany) {
    clients.push_back(std::make_unique<Client>(dial()));
  }
  settle();  // all are accepted
  for (const auto &each : clients) {
    EXPECT_EQ(each->channel.handshake(), TlsChannel::Result::wantsRead);
  }
  const auto answered = [&] {
    return std::ranges::count_if(clients, [](const auto &each) {
      char byte = 0;
      return recv(each->socket.get(), &byte, 1, MSG_DONTWAIT | MSG_PEEK) == 1;
    });
  };
  runUntil([&] { return answered() > 0; });
  sendFromClient("x");
  runUntil([this] { return heard == "x"; });
  EXPECT_LT(answered(), kMany / 3);
  runUntil([&] { return answered() == kMany; });
}

}  // namespace
}  // namespace platform_linux
