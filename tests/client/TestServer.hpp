#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <thread>

#include "base/Descriptor.hpp"
#include "crypto/Identity.hpp"
#include "crypto/TlsChannel.hpp"
#include "protocol/QuillMessage.hpp"

// One connection as a daemon sees it. Nothing waits longer than ten seconds.
class ServedConnection {
 public:
  ServedConnection(base::Descriptor socket, const crypto::TlsContext &context);

  [[nodiscard]] bool handshake();

  // The next message; nothing at the end of the stream or when none comes in time.
  [[nodiscard]] std::optional<QuillMessage> receive();

  // Sends bytes as they are, in records as a unit is cut, or a message as a frame.
  void sendUnit(ByteView unit);
  void send(const QuillMessage &message);

  // How much plaintext has come in all.
  [[nodiscard]] std::size_t received() const { return received_; }

 private:
  [[nodiscard]] bool wait(crypto::TlsChannel::Result result) const;

  std::chrono::steady_clock::time_point deadline_;
  base::Descriptor socket_;
  crypto::TlsChannel channel_;
  CleansedBytes buffer_;
  CleansedBytes frame_;
  std::size_t received_ = 0;
};

// A TLS server on a free loopback port, with a fresh identity, that serves one connection in a
// thread of its own; the handshake is left to `serve`.
class TestServer {
 public:
  explicit TestServer(std::function<void(ServedConnection &)> serve);
  ~TestServer() { join(); }
  TestServer(const TestServer &) = delete;
  TestServer &operator=(const TestServer &) = delete;

  [[nodiscard]] std::uint16_t port() const { return port_; }
  [[nodiscard]] const crypto::Certificate &certificate() const { return identity_.certificate; }
  void join();

 private:
  crypto::Identity identity_;
  std::uint16_t port_ = 0;
  base::Descriptor listener_;
  std::thread thread_;
};

// A socket on a free loopback port, where nobody listens yet.
[[nodiscard]] base::Descriptor boundToLoopback(std::uint16_t &port);

// A fresh P-256 identity.
[[nodiscard]] crypto::Identity makeIdentity(const std::string &commonName);
