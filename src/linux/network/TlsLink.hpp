#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "base/Secret.hpp"
#include "crypto/TlsChannel.hpp"
#include "linux/network/AsioMainQueue.hpp"
#include "platform/Network.hpp"

namespace platform_linux {

// One accepted socket from its handshake to its end. It outlives the connection object that others
// hold, for as long as something still has to leave. Asio waits for the socket, OpenSSL reads and
// writes it.
//
// Every turn of the loop serves one chunk and a bounded amount of output of a link, then the next
// one's, so that a peer which sends without pause cannot keep the others waiting.
class TlsLink : public std::enable_shared_from_this<TlsLink> {
 public:
  using Done = std::function<void(int errorNumber)>;

  // `socket` is connected and non-blocking. `buffer` takes one chunk at a time for all links of a
  // loop.
  TlsLink(AsioMainQueue &queue, boost::asio::ip::tcp::socket socket,
          const crypto::TlsContext &context, std::shared_ptr<CleansedBytes> buffer);

  [[nodiscard]] const platform::Endpoint &peer() const { return peer_; }

  // Does the handshake. `done` comes once, on a later event: with 0, or with why there is no
  // connection.
  void handshake(std::chrono::milliseconds time, Done done);

  // Ends an unfinished handshake without a word.
  void abandon();

  // The operations of platform::Connection.
  void setStateHandler(platform::Connection::StateHandler handler);
  void start();
  void receive(platform::Connection::ReceiveCompletion completion);
  void send(CleansedBytes unit, platform::Connection::SendCompletion completion);
  void cancel();
  [[nodiscard]] std::size_t unsentBytes() const;
  void holds(std::size_t bytes);
  void rejected();

  // The last reference to the connection was dropped.
  void release();

 private:
  enum class Phase { handshaking, open, peerEnded, closing, closed };

  // A frame on its way out.
  struct Unit {
    CleansedBytes bytes;
    std::size_t encrypted = 0;
    platform::Connection::SendCompletion completion;
  };

  void later(void (TlsLink::*turn)());
  void whenReadable(void (TlsLink::*turn)());
  void whenWritable(void (TlsLink::*turn)());
  void closeAfter(std::chrono::milliseconds time);

  void handshakeTurn();
  void countHandshakeTime(std::chrono::milliseconds left);
  void endHandshake(int errorNumber);

  void scheduleRead();
  void readTurn();
  void deliver(ByteView chunk);
  void peerEnded();
  void lose(int errorNumber);

  void scheduleFlush();
  void flushTurn();
  bool encryptUnits();
  void outputHasLeft();
  void outputIsLost(int errorNumber);

  void beginClosing();
  void sayGoodbye();
  void discardTurn();
  void closeNow();

  AsioMainQueue &queue_;
  boost::asio::ip::tcp::socket socket_;
  platform::Endpoint peer_;
  std::shared_ptr<CleansedBytes> buffer_;
  crypto::TlsChannel channel_;
  boost::asio::steady_timer timer_;

  Phase phase_ = Phase::handshaking;
  Done handshakeDone_;
  platform::Connection::StateHandler stateHandler_;
  platform::Connection::ReceiveCompletion receive_;
  std::deque<Unit> units_;                                     // not yet encrypted to their end
  std::size_t held_ = 0;                                       // of frames, by the owner
  std::vector<platform::Connection::SendCompletion> leaving_;  // encrypted, not yet with the system
  bool isReadScheduled_ = false;
  bool isFlushScheduled_ = false;
  bool hasSaidGoodbye_ = false;
  bool isPeerGone_ = false;
  int writeError_ = 0;
};

}  // namespace platform_linux
