#pragma once

#include <sys/socket.h>

#include <chrono>
#include <functional>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>

#include "base/Descriptor.hpp"
#include "crypto/TlsChannel.hpp"
#include "fakes/LoopbackSocket.hpp"
#include "fakes/MadeKeys.hpp"
#include "protocol/Frame.hpp"
#include "protocol/QuillMessage.hpp"

namespace fakes {

// One connection as a daemon sees it. Nothing waits longer than ten seconds.
class ServedConnection {
 public:
  ServedConnection(base::Descriptor socket, const crypto::TlsContext &context)
      : deadline_(std::chrono::steady_clock::now() + std::chrono::seconds(10)),
        socket_(std::move(socket)),
        channel_(context, crypto::TlsChannel::Role::server, socket_.get()),
        buffer_(crypto::kTlsRecordBytes + 8) {}

  [[nodiscard]] bool handshake() {
    Result result = channel_.handshake();
    while (wait(result)) {
      result = channel_.handshake();
    }
    return result == Result::done;
  }

  // The next message; nothing at the end of the stream or when none comes in time.
  [[nodiscard]] std::optional<QuillMessage> receive() {
    while (true) {
      ByteView chunk;
      const Result result = channel_.readChunk(buffer_, chunk);
      if (result != Result::done && !wait(result)) {
        return std::nullopt;
      }
      received_ += chunk.size();
      const auto collected = protocol::collectChunk(frame_, chunk);
      if (collected.outcome == protocol::ChunkOutcome::frame) {
        return QuillMessage::initWithJSONData(collected.payload);
      }
    }
  }

  // Sends bytes as they are, in records as a unit is cut, or a message as a frame.
  void sendUnit(ByteView unit) {
    while (!unit.empty()) {
      unit = unit.subspan(channel_.encryptRecord(unit));
    }
    while (wait(channel_.flush())) {
    }
  }
  void send(const QuillMessage &message) { sendUnit(protocol::frameOf(message)); }

  // How much plaintext has come in all.
  [[nodiscard]] std::size_t received() const { return received_; }

 private:
  using Result = crypto::TlsChannel::Result;

  [[nodiscard]] bool wait(Result result) const {
    return (result == Result::wantsRead && base::waitToRead(socket_.get(), deadline_)) ||
           (result == Result::wantsWrite && base::waitToWrite(socket_.get(), deadline_));
  }

  std::chrono::steady_clock::time_point deadline_;
  base::Descriptor socket_;
  crypto::TlsChannel channel_;
  CleansedBytes buffer_;
  CleansedBytes frame_;
  std::size_t received_ = 0;
};

// A TLS server on a free loopback port, with a fresh identity, that serves one connection in a
// thread of its own; the handshake is left to `serve`.
class TlsServer {
 public:
  explicit TlsServer(std::function<void(ServedConnection &)> serve)
      : identity_(makeIdentity("test server")), listener_(boundToLoopback(port_)) {
    if (::listen(listener_.get(), 1) != 0) {
      throw std::runtime_error("no loopback listener");
    }
    thread_ = std::thread([this, serve = std::move(serve)] {
      const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
      if (base::waitToRead(listener_.get(), deadline)) {
        base::Descriptor socket(
            ::accept4(listener_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        ServedConnection connection(std::move(socket),
                                    crypto::TlsContext::server(identity_).value());
        serve(connection);
      }
    });
  }
  ~TlsServer() { join(); }
  TlsServer(const TlsServer &) = delete;
  TlsServer &operator=(const TlsServer &) = delete;

  [[nodiscard]] std::uint16_t port() const { return port_; }
  [[nodiscard]] const crypto::Certificate &certificate() const { return identity_.certificate; }
  void join() {
    if (thread_.joinable()) {
      thread_.join();
    }
  }

 private:
  crypto::Identity identity_;
  std::uint16_t port_ = 0;
  base::Descriptor listener_;
  std::thread thread_;
};

}  // namespace fakes
