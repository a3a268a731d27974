#pragma once

#include "platform/Network.hpp"
#include "protocol/QuillMessage.hpp"

namespace fakes {

// A connection whose peer is the test. State changes come when the test says so.
class FakeConnection : public platform::Connection {
 public:
  [[nodiscard]] platform::Endpoint peer() const override { return {host, 50123, host}; }
  void setStateHandler(StateHandler handler) override { stateHandler = std::move(handler); }
  void start() override { calls.emplace_back("start"); }
  void receive(ReceiveCompletion completion) override { receive_ = std::move(completion); }
  void send(CleansedBytes unit, SendCompletion completion) override {
    sent.emplace_back(base::textOf(unit));
    completion(sendError);
  }
  void cancel() override {
    calls.emplace_back("cancel");
    isCancelled = true;
  }
  [[nodiscard]] std::size_t unsentBytes() const override { return unsent; }
  void setHeldBytes(std::size_t frameBytes, std::size_t otherBytes) override {
    calls.push_back("holds " + std::to_string(frameBytes) + "+" + std::to_string(otherBytes));
  }
  void setAuthenticated(bool is) override {
    if (std::exchange(isAuthenticated, is) != is) {
      calls.emplace_back(is ? "authenticated" : "not authenticated");
    }
  }
  void countRejection() override { calls.emplace_back("rejected"); }

  // One chunk from the peer, or the end of its stream.
  void deliver(std::string_view content) {
    complete({base::viewOf(content), /*isFinal=*/false, /*errorNumber=*/0});
  }
  void end() { complete({{}, /*isFinal=*/true, /*errorNumber=*/0}); }
  void complete(const platform::Chunk &chunk) {
    if (const auto completion = std::exchange(receive_, nullptr)) {
      completion(chunk);
    }
  }
  [[nodiscard]] bool isReceiving() const { return receive_ != nullptr; }

  // The messages that were sent since the last call; a frame that holds none is left out.
  [[nodiscard]] std::vector<QuillMessage> takeMessages() {
    std::vector<QuillMessage> messages;
    for (const std::string &frame : std::exchange(sent, {})) {
      const std::string_view payload(frame.data() + 6, frame.size() - 15);
      if (auto message = QuillMessage::initWithJSONData(base::viewOf(payload))) {
        messages.push_back(std::move(*message));
      }
    }
    return messages;
  }

  std::string host = "192.0.2.7";
  StateHandler stateHandler;
  std::vector<std::string> sent;
  std::vector<std::string> calls;  // that no other field shows, in order
  int sendError = 0;
  std::size_t unsent = 0;
  bool isCancelled = false;
  bool isAuthenticated = false;

 private:
  ReceiveCompletion receive_;
};

class FakeListener : public platform::Listener {
 public:
  explicit FakeListener(const std::string &port) : port_(std::stoi(port)) {}
  [[nodiscard]] std::uint16_t port() const override { return static_cast<std::uint16_t>(port_); }
  void setStateHandler(StateHandler handler) override { stateHandler = std::move(handler); }
  void setConnectionHandler(ConnectionHandler handler) override {
    connectionHandler = std::move(handler);
  }
  void setFailedHandshakeHandler(FailedHandshakeHandler) override {}
  void start() override {}

  // A new peer.
  [[nodiscard]] std::shared_ptr<FakeConnection> connect() {
    auto connection = std::make_shared<FakeConnection>();
    connectionHandler(connection);
    return connection;
  }

  StateHandler stateHandler;
  ConnectionHandler connectionHandler;

 private:
  int port_;
};

// Notes how listeners are asked for. They belong to whoever asked.
class FakeNetwork : public platform::Network {
 public:
  std::unique_ptr<platform::Listener> createListener(
      const platform::ListenerParameters &parameters) override {
    auto listener = std::make_unique<FakeListener>(parameters.port);
    listeners.push_back(listener.get());
    asked.push_back(parameters);
    return listener;
  }

  std::optional<std::string> ownerOfPort(std::uint16_t) override { return owner; }

  std::optional<std::string> owner;
  std::vector<platform::ListenerParameters> asked;
  std::vector<FakeListener *> listeners;
};

}  // namespace fakes
