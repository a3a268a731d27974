#pragma once

#include <fcntl.h>
#include <sys/socket.h>

#include <functional>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "fakes/LoopbackSocket.hpp"
#include "fakes/MadeKeys.hpp"
#include "fakes/ServedConnection.hpp"

namespace fakes {

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
    if (::listen(listener_.get(), 64) != 0) {
      throw std::runtime_error("no loopback listener");
    }
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
