#pragma once

#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>

#include "linux/network/Acknowledgements.hpp"
#include "linux/network/Ledger.hpp"
#include "linux/network/Rejections.hpp"
#include "linux/network/TlsCommons.hpp"
#include "linux/network/TlsOutput.hpp"
#include "linux/network/TlsStream.hpp"
#include "platform/Network.hpp"

namespace platform_linux {

// One established connection to its end. It outlives the connection object that others hold, for as
// long as something still has to leave. Asio waits for the socket, OpenSSL reads and writes it.
//
// Every turn of the loop serves one chunk and a bounded amount of output of a link, then the next
// one's, so that a peer which sends without pause cannot keep the others waiting.
class TlsLink : public std::enable_shared_from_this<TlsLink> {
 public:
  TlsLink(std::shared_ptr<TlsCommons> commons, TlsStream stream);
  ~TlsLink() { commons_->heap->connectionGone(); }
  TlsLink(const TlsLink &) = delete;
  TlsLink &operator=(const TlsLink &) = delete;

  [[nodiscard]] const platform::Endpoint &peer() const { return stream_.peer; }

  // The operations of platform::Connection.
  void setStateHandler(platform::Connection::StateHandler handler);
  void start();
  void receive(platform::Connection::ReceiveCompletion completion);
  void send(CleansedBytes unit, platform::Connection::SendCompletion completion);
  void cancel();
  [[nodiscard]] std::size_t unsentBytes() const { return output_.bytes(); }
  void holds(std::size_t frameBytes, std::size_t otherBytes) {
    account_.holds(frameBytes, otherBytes);
  }
  void setAuthenticated(bool isAuthenticated) { isAuthenticated_ = isAuthenticated; }
  void rejected();

  // Reads a chunk, if one may still be read. For UnauthenticatedTurns.
  void readInTurn() { take(&TlsLink::read); }

  // The last reference to the connection was dropped.
  void release();

  // How long the peer has acknowledged nothing although some output waits; nothing if none does,
  // and then this need not be asked before more is sent.
  [[nodiscard]] std::optional<std::chrono::steady_clock::duration> acknowledgementsMissingFor();

  // Reports `failed`, completes what is outstanding, the receive last, and says nothing more. On an
  // event of its own.
  void lose(int errorNumber);

 private:
  enum class Phase { open, peerEnded, closing, closed };
  using Wait = boost::asio::ip::tcp::socket::wait_type;

  void take(void (TlsLink::*turn)());  // without memory for a turn this link is lost, and no other
  void later(void (TlsLink::*turn)());
  void turnWhen(Wait ready, void (TlsLink::*turn)());
  void turnAfter(std::chrono::milliseconds time, void (TlsLink::*turn)());

  void beginTurn();
  [[nodiscard]] bool mayRead() const;
  void scheduleRead();
  void readTurn();
  void read();
  void readAgain();
  void deliver(ByteView chunk);
  void peerEnded();

  void scheduleFlush();
  void flushTurn();
  void outputHasLeft();
  void outputIsLost(int errorNumber);
  void doom(int errorNumber);

  void beginClosing();
  void sayGoodbye();
  void discardTurn();
  void closeNow();

  std::shared_ptr<TlsCommons> commons_;
  TlsStream stream_;
  TlsOutput output_;
  Ledger::Account account_;
  boost::asio::steady_timer timer_;

  Phase phase_ = Phase::open;
  platform::Connection::StateHandler stateHandler_;
  platform::Connection::ReceiveCompletion receive_;
  Rejections rejections_;
  Acknowledgements acknowledgements_;
  bool isAuthenticated_ = false;
  bool isStarted_ = false;  // `ready` was told; before that nothing is read
  bool isReadScheduled_ = false;
  bool isReadingPaused_ = false;
  bool isFlushScheduled_ = false;
  bool isWatched_ = false;  // by commons_->stalls
  bool hasSaidGoodbye_ = false;
  bool isPeerGone_ = false;
  int writeError_ = 0;
};

}  // namespace platform_linux
