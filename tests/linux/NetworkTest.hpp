#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/tcp.h>

#include <boost/asio/ip/tcp.hpp>
#include <cstring>

#include "base/Descriptor.hpp"
#include "crypto/TlsChannel.hpp"
#include "fakes/LoopbackSocket.hpp"
#include "fakes/MadeKeys.hpp"
#include "linux/network/TlsNetwork.hpp"

namespace platform_linux {

using namespace std::chrono_literals;
using crypto::TlsChannel;

// The number that the next descriptor will have.
inline int nextDescriptor() {
  return base::Descriptor(::dup(STDERR_FILENO)).get();
}

// A listener on a port of its own with a client, and what it and its last connection tell.
class Network : public testing::Test {
 public:
  Network() {
    parameters.host = "127.0.0.1";
    parameters.port = "0";
    parameters.identity = std::make_shared<const crypto::Identity>(fakes::makeIdentity("server"));
    listen();
  }

  void listen(std::chrono::milliseconds handshakeTime = 10s,
              const std::string &expected = "listening") {
    parameters.limits = [this, handshakeTime] {
      platform::ListenerLimits mine = listenerLimits;
      mine.handshakeTime = handshakeTime;
      return mine;
    };
    listener.reset();
    listener = network.createListener(parameters);
    listener->setStateHandler([this](platform::ListenerState state, int error) {
      tell(state == platform::ListenerState::ready ? "listening" : "not listening", error);
    });
    listener->setFailedHandshakeHandler(
        [this](const platform::Endpoint &, int error) { tell("no handshake", error); });
    listener->setConnectionHandler([this](std::shared_ptr<platform::Connection> made) {
      connection = std::move(made);
      connection->setStateHandler([this](platform::ConnectionState state, int error) {
        constexpr const char *kNames[] = {"waiting", "preparing", "ready", "failed", "cancelled"};
        tell(kNames[static_cast<std::size_t>(state)], error);
      });
      connection->start();
      readAlways(*connection);
    });
    listener->start();
    EXPECT_EQ(heard, "") << "told on a later event";
    expect(expected);
  }

  void readAlways(platform::Connection &from) {
    from.receive([this, &from](const platform::Chunk &chunk) {
      tell(chunk.isFinal ? "end" : std::string(base::textOf(chunk.content)), chunk.errorNumber);
      if (!chunk.isFinal) {
        readAlways(from);
      }
    });
  }
  void send(std::size_t size) {
    connection->send(CleansedBytes(size, 'x'), [this](int error) { tell("sent", error); });
  }

  void tell(const std::string &what, int error = 0) {
    heard += (heard.empty() ? "" : ", ") + what;
    heard += error == 0 ? "" : std::string(" ") + strerrorname_np(error);
  }
  // Runs the queue until this is told, and nothing else.
  void expect(const std::string &events) {
    runUntil([&] { return heard.size() >= events.size(); });
    settle();
    EXPECT_EQ(std::exchange(heard, ""), events);
  }

  // Runs the queue until the condition holds, ten seconds at most.
  template <typename Condition>
  void runUntil(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (!condition() && std::chrono::steady_clock::now() < deadline) {
      queue.context().run_one_for(1ms);
      queue.endEvent();
    }
    EXPECT_TRUE(condition());
  }
  // Runs the queue until nothing more is ready.
  void settle() {
    runUntil([this] {
      queue.endEvent();
      return queue.context().poll_one() == 0;
    });
  }

  base::Descriptor dial() const {
    base::Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const boost::asio::ip::tcp::endpoint there(boost::asio::ip::address_v4::loopback(),
                                               listener->port());
    EXPECT_EQ(connect(socket.get(), there.data(), static_cast<socklen_t>(there.size())), 0);
    fcntl(socket.get(), F_SETFL, O_NONBLOCK);
    const int on = 1;  // what is sent is there at once
    setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    return socket;
  }

  struct Client {
    base::Descriptor socket;
    TlsChannel channel{*crypto::TlsContext::client(), TlsChannel::Role::client, socket.get()};
  };
  // Connects and lets both sides shake hands.
  void establish() {
    client = std::make_unique<Client>(dial());
    shakeHands();
    expect("ready");
  }
  void shakeHands() {
    connection.reset();
    accepted = nextDescriptor();
    runUntil(
        [this] { return client->channel.handshake() == TlsChannel::Result::done && connection; });
  }
  [[nodiscard]] static bool isOpen(int descriptor) { return fcntl(descriptor, F_GETFD) != -1; }

  // All that the client gets until its stream ends.
  std::string readToEnd() {
    std::string text;
    CleansedBytes buffer(crypto::kTlsRecordBytes + 8);
    runUntil([&] {
      ByteView chunk;
      const auto result = client->channel.readChunk(buffer, chunk);
      text += result == TlsChannel::Result::done     ? base::textOf(chunk)
              : result == TlsChannel::Result::failed ? "reset"
                                                     : "";
      return result == TlsChannel::Result::ended || result == TlsChannel::Result::failed;
    });
    return text;
  }

  void sendFromClient(std::string_view text) { send(*client, text); }
  static void send(Client &from, std::string_view text) {
    EXPECT_EQ(from.channel.encryptRecord(base::viewOf(text)), text.size());
    EXPECT_EQ(from.channel.flush(), TlsChannel::Result::done);
  }

  AsioMainQueue queue;
  platform::ConnectionLimits limits{
      {2 << 20, "frame"}, {400 << 20, "unsent"}, {400 << 20, "all"}, {45, "stalled"}};
  platform::ListenerLimits listenerLimits{
      10s, {9, "handshakes"}, {9, "perSource"}, {9, "connections"}, {9, "ofSource"}, {}};
  TlsNetwork network{queue, [this] { return limits; },
                     [this](const platform::ReachedLimit &reached) {
                       tell(reached.consequence + ": " + std::string(reached.limit.setting));
                     }};
  platform::ListenerParameters parameters;
  std::unique_ptr<platform::Listener> listener;
  std::shared_ptr<platform::Connection> connection;
  std::string heard;
  std::unique_ptr<Client> client;
  int accepted = -1;  // the other end of the client's socket
};

}  // namespace platform_linux
