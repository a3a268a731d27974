#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/Descriptor.hpp"
#include "crypto/TlsChannel.hpp"
#include "fakes/LoopbackSocket.hpp"
#include "fakes/MadeKeys.hpp"
#include "linux/network/TlsNetwork.hpp"

namespace platform_linux {

using namespace std::chrono_literals;
using crypto::TlsChannel;
using platform::ConnectionState;

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
    listener->setFailedHandshakeHandler([this](const platform::Endpoint &, int error) {
      failedHandshake = error;
      ++failedHandshakes;
    });
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
    if (!socket.isOpen()) {
      ADD_FAILURE() << "no socket to be had";
      return socket;
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(listener->port());
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(socket.get(), reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    fcntl(socket.get(), F_SETFL, O_NONBLOCK);
    const int on = 1;  // what is sent is there at once
    setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    return socket;
  }

  // Connects and lets both sides shake hands.
  void establish() {
    client = dial();
    shakeHands();
  }
  void shakeHands() {
    channel.emplace(*crypto::TlsContext::client(), TlsChannel::Role::client, client.get());
    runUntil([this] { return channel->handshake() == TlsChannel::Result::done && connection; });
  }

  // Runs the queue until nothing more is ready.
  void settle() {
    runUntil([this] { return queue.context().poll_one() == 0; });
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
      {2 << 20, "frame"}, {400 << 20, "unsent"}, {400 << 20, "all"}, {45, "stalled"}};
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
  std::size_t failedHandshakes = 0;
  std::optional<int> finalError;
  std::size_t statesAtEnd = 0;
  std::vector<std::pair<ConnectionState, int>> states;
  std::string received;
  base::Descriptor client;
  std::optional<TlsChannel> channel;
};

}  // namespace platform_linux
