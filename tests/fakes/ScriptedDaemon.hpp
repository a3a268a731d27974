#pragma once

#include <fcntl.h>

#include <thread>

#include "crypto/TlsChannel.hpp"
#include "fakes/LoopbackSocket.hpp"
#include "fakes/MadeKeys.hpp"
#include "protocol/Frame.hpp"

namespace fakes {

// One connection as a daemon sees it. Nothing waits longer than a minute.
class ServedConnection {
 public:
  ServedConnection(base::Descriptor socket, const crypto::TlsContext &context)
      : deadline_(std::chrono::steady_clock::now() + std::chrono::seconds(60)),
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

  // False if it can't be sent any more.
  bool send(const QuillMessage &message) {
    const auto frame = protocol::frameOf(message);
    ByteView unit = frame;
    while (!unit.empty()) {
      unit = unit.subspan(channel_.encryptRecord(unit));
    }
    Result result = channel_.flush();
    while (wait(result)) {
      result = channel_.flush();
    }
    return result == Result::done;
  }

  // True as soon as something comes, or the stream's end.
  [[nodiscard]] bool waitForMore(std::chrono::milliseconds time) const {
    return base::waitToRead(socket_.get(), std::chrono::steady_clock::now() + time);
  }

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

// A TLS server on a loopback port that serves any number of connections, each in a thread of its
// own; stopped, its connections end, and a later one on the same port with the same identity is the
// same daemon restarted.
class ScriptedDaemon {
 public:
  // Called after the handshake, with the number of the connection, from 0 on.
  using Serve = std::function<void(ServedConnection &connection, int number)>;

  // `port` 0: a free one.
  ScriptedDaemon(crypto::Identity identity, std::uint16_t port, Serve serve)
      : identity_(std::move(identity)),
        port_(port),
        serve_(std::move(serve)),
        listener_(boundToLoopback(port_)) {
    ::listen(listener_.get(), 64);
    accepting_ = std::thread([this] { acceptAll(); });
  }
  ~ScriptedDaemon() {
    ::shutdown(listener_.get(), SHUT_RDWR);
    accepting_.join();
    for (const base::Descriptor &socket : sockets_) {
      ::shutdown(socket.get(), SHUT_RDWR);
    }
    for (std::thread &thread : serving_) {
      thread.join();
    }
  }
  ScriptedDaemon(const ScriptedDaemon &) = delete;
  ScriptedDaemon &operator=(const ScriptedDaemon &) = delete;

  [[nodiscard]] std::uint16_t port() const { return port_; }

 private:
  void acceptAll() {
    for (int number = 0;; ++number) {
      base::Descriptor socket(
          ::accept4(listener_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
      if (!socket.isOpen()) {
        return;
      }
      sockets_.emplace_back(::fcntl(socket.get(), F_DUPFD_CLOEXEC, 0));
      serving_.emplace_back(
          [this, number, copy = sockets_.back().get(), socket = std::move(socket)]() mutable {
            ServedConnection connection(std::move(socket),
                                        crypto::TlsContext::server(identity_).value());
            if (connection.handshake()) {
              serve_(connection, number);
            }
            ::shutdown(copy, SHUT_RDWR);
          });
    }
  }

  crypto::Identity identity_;
  std::uint16_t port_;
  Serve serve_;
  base::Descriptor listener_;
  std::vector<base::Descriptor> sockets_;  // copies, to end the connections
  std::vector<std::thread> serving_;
  std::thread accepting_;
};

}  // namespace fakes
