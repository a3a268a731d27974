#pragma once

#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <deque>
#include <functional>
#include <memory>

#include "linux/network/AsioMainQueue.hpp"
#include "linux/network/TlsStream.hpp"

namespace platform_linux {

class TlsHandshake;

// Runs the steps of one listener's handshakes, in the order in which they ask. A step may cost a
// signature, many times the cost of a relay, so a listener runs one step per turn of the loop. Each
// listener has its own queue: a crowd at one keeps nobody waiting at the other.
class HandshakeTurns : public std::enable_shared_from_this<HandshakeTurns> {
 public:
  explicit HandshakeTurns(AsioMainQueue &queue) : queue_(queue) {}

  void add(const std::shared_ptr<TlsHandshake> &handshake);

 private:
  void post();
  void turn();

  AsioMainQueue &queue_;
  std::deque<std::weak_ptr<TlsHandshake>> waiting_;
  bool isPosted_ = false;
};

// The handshake of one accepted socket.
class TlsHandshake : public std::enable_shared_from_this<TlsHandshake> {
 public:
  using Done = std::function<void(int errorNumber)>;

  // `socket` is connected and non-blocking; `place` is its place among the connections.
  TlsHandshake(AsioMainQueue &queue, std::shared_ptr<HandshakeTurns> turns,
               boost::asio::ip::tcp::socket socket, const crypto::TlsContext &context,
               platform::Endpoint peer, Place place);

  [[nodiscard]] const platform::Endpoint &peer() const { return stream_.peer; }

  // Starts the handshake. `done` is called once, on a later event: with 0, or with the error; the
  // socket is closed then.
  void begin(std::chrono::milliseconds time, Done done);

  // Ends it without calling `done`.
  void abandon();

  // Its age. Time in which the loop was blocked does not count.
  [[nodiscard]] std::chrono::milliseconds age() const;

  // The established stream. May be called once, after `done`.
  [[nodiscard]] TlsStream takeStream();

  // Continues as far as the peer's bytes allow; fails if there is no memory. For HandshakeTurns.
  void step();

 private:
  using Wait = boost::asio::ip::tcp::socket::wait_type;

  void runOrEnd(void (TlsHandshake::*part)());  // fails this handshake if there is no memory
  void awaitTurn();
  void goOn();
  void stepWhen(Wait ready);
  void countPiece();
  void endPiece();
  void end(int errorNumber);

  std::shared_ptr<HandshakeTurns> turns_;
  TlsStream stream_;
  boost::asio::steady_timer timer_;
  Done done_;
  std::chrono::milliseconds time_{0};
  std::chrono::milliseconds counted_{0};
  std::chrono::steady_clock::time_point pieceBegan_;
};

}  // namespace platform_linux
