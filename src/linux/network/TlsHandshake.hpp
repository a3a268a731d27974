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

// Gives the handshakes of one listener that can go on their steps, in the order in which they ask.
// A step costs a signature, many times a relay: all of them together have one per turn of the loop.
// The two listeners have turns of their own, so that a crowd at one keeps nobody waiting at the
// other.
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

  // Does the handshake. `done` comes once, on a later event: with 0, or with why there is no
  // connection; the socket is closed then.
  void begin(std::chrono::milliseconds time, Done done);

  // Ends it without a word.
  void abandon();

  // How long it has gone on; times in which the loop was blocked do not count.
  [[nodiscard]] std::chrono::milliseconds age() const;

  // What was established. Once, after `done`.
  [[nodiscard]] TlsStream takeStream();

  // Goes on as far as the peer's bytes allow; without memory for that it fails. For HandshakeTurns.
  void step();

 private:
  using Wait = boost::asio::ip::tcp::socket::wait_type;

  void orEnd(void (TlsHandshake::*part)());  // without memory for it this handshake has failed
  void awaitTurn();
  void goOn();
  void stepWhen(Wait ready);
  void countPiece();
  void pieceIsOver();
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
