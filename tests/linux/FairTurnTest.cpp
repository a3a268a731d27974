// Who asks for much at once makes nobody else wait.

#include <algorithm>
#include <memory>
#include <thread>

#include "linux/NetworkTest.hpp"

namespace platform_linux {
namespace {

class FairTurn : public Network {
 public:
  struct Client {
    base::Descriptor socket;
    TlsChannel channel;

    explicit Client(base::Descriptor dialled)
        : socket(std::move(dialled)),
          channel(*crypto::TlsContext::client(), TlsChannel::Role::client, socket.get()) {}
  };

  void connectAll(std::size_t count) {
    while (clients.size() < count) {
      connection.reset();
      Client &each = *clients.emplace_back(std::make_unique<Client>(dial()));
      runUntil([&] { return each.channel.handshake() == TlsChannel::Result::done && connection; });
      connections.push_back(connection);
      expect("ready");
    }
  }

  // Sends so many records of one letter.
  static void send(Client &from, std::string_view letter, int records) {
    for (int count = 0; count < records; ++count) {
      EXPECT_EQ(from.channel.encryptRecord(base::viewOf(letter)), 1U);
      EXPECT_EQ(from.channel.flush(), TlsChannel::Result::done);
    }
  }

  // What any of these connections sends is received in one text.
  void readAlways(platform::Connection &from) {
    from.receive([this, &from](const platform::Chunk &chunk) {
      received += base::textOf(chunk.content);
      if (!chunk.isFinal) {
        readAlways(from);
      }
    });
  }

  std::vector<std::unique_ptr<Client>> clients;
  std::vector<std::shared_ptr<platform::Connection>> connections;
  std::string received;
};

TEST_F(FairTurn, ReadsOneChunkOfEachConnection) {
  connectAll(2);
  readAlways(*connections[0]);
  readAlways(*connections[1]);
  send(*clients[0], "a", 50);
  send(*clients[1], "b", 1);
  runUntil([this] { return received.find('b') != std::string::npos; });
  EXPECT_LE(received.size(), 4U) << received;
  runUntil([this] { return received.size() == 51; });
}

// What one of these did took 100 ms: all of them are read only after as long again, others at once.
TEST_F(FairTurn, GivesThoseThatHaveNotAuthenticatedHalfOfTheTime) {
  connectAll(3);
  connections[2]->setAuthenticated(/*isAuthenticated=*/true);
  connections[0]->receive([this](const platform::Chunk &) {
    std::this_thread::sleep_for(100ms);
    received += 'a';
    queue.postAfter(100ms, [this] { received += '.'; });
    queue.postAfter(900ms, [this] { received += "too late"; });
  });
  send(*clients[0], "a", 1);
  runUntil([this] { return received == "a"; });
  readAlways(*connections[1]);
  readAlways(*connections[2]);
  send(*clients[1], "b", 1);
  send(*clients[2], "c", 1);
  runUntil([this] { return received.find('b') != std::string::npos; });
  EXPECT_EQ(received, "ac.b");
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
