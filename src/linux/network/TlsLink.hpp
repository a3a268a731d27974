#pragma once

#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <utility>

#include "linux/network/Acknowledgements.hpp"
#include "linux/network/BufferQuota.hpp"
#include "linux/network/GarbageLimiter.hpp"
#include "linux/network/NetworkResources.hpp"
#include "linux/network/TlsOutput.hpp"
#include "linux/network/TlsStream.hpp"
#include "platform/Network.hpp"

namespace platform_linux {

// One established connection, until it has ended. It outlives the TlsConnection that others hold,
// as long as output still has to leave. Asio waits for the socket; OpenSSL reads and writes it.
//
// In each turn of the loop a link reads one chunk and sends a bounded amount of output. So a peer
// that sends without pause does not keep the others waiting.
class TlsLink : public std::enable_shared_from_this<TlsLink> {
 public:
  TlsLink(std::shared_ptr<NetworkResources> resources, TlsStream stream);
  ~TlsLink() { resources_->heap->connectionGone(); }
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
  void setHeldBytes(std::size_t frameBytes, std::size_t otherBytes) {
    account_.setHeldBytes(frameBytes, otherBytes);
  }
  void setAuthenticated(bool isAuthenticated) { isAuthenticated_ = isAuthenticated; }
  void countRejection();

  // Reads a chunk if reading is still allowed. For UnauthenticatedTurns.
  void readInTurn() { take(&TlsLink::read); }

  // The last reference to the connection was dropped.
  void release();

  // Looks at the socket: how long the peer has acknowledged nothing although output waits. Nothing
  // if no output waits; the stall watch then forgets this link until it reads or sends again, and
  // memory that an idle link does not need is given back.
  [[nodiscard]] std::optional<std::chrono::steady_clock::duration> checkAcknowledgements();

  // Reports `failed`, completes the sends and then the receive with the error, and reports nothing
  // more. Must be called on an event of its own, not inside a call of the owner.
  void lose(int errorNumber);

 private:
  enum class Phase { open, peerEnded, closing, closed };
  using Wait = boost::asio::ip::tcp::socket::wait_type;

  void take(void (TlsLink::*turn)());  // loses this link, and no other, if there is no memory
  void later(void (TlsLink::*turn)());
  void turnWhen(Wait ready, void (TlsLink::*turn)());
  void turnAfter(std::chrono::milliseconds time, void (TlsLink::*turn)());

  void beginTurn();
  void watchWhileBusy();
  [[nodiscard]] bool mayRead() const;
  void scheduleRead();
  void readTurn();
  void read();
  void readAgain();
  void deliver(ByteView chunk);
  void peerEnded();

  void scheduleFlush();
  void flushTurn();
  void finishFlush();
  void loseOutput(int errorNumber);
  void evict(int errorNumber);

  void beginClosing();
  void sendCloseNotify();
  void discardTurn();
  void closeNow();

  std::shared_ptr<NetworkResources> resources_;
  TlsStream stream_;
  TlsOutput output_;
  BufferQuota::Account account_;
  boost::asio::steady_timer timer_;

  Phase phase_ = Phase::open;
  platform::Connection::StateHandler stateHandler_;
  platform::Connection::ReceiveCompletion receive_;
  GarbageLimiter garbage_;
  Acknowledgements acknowledgements_;
  std::chrono::steady_clock::time_point flushedAt_;
  bool isAuthenticated_ = false;
  bool isStarted_ = false;  // `ready` was reported; nothing is read before
  bool isReadScheduled_ = false;
  bool isReadingPaused_ = false;
  bool isFlushScheduled_ = false;
  bool isWatched_ = false;  // by resources_->stalls
  bool hasSentCloseNotify_ = false;
  bool isPeerGone_ = false;
  int writeError_ = 0;
};

// The owner's handle of a link. When the last copy goes, the link closes.
class TlsConnection final : public platform::Connection {
 public:
  explicit TlsConnection(std::shared_ptr<TlsLink> link) : link_(std::move(link)) {}
  ~TlsConnection() override { link_->release(); }
  TlsConnection(const TlsConnection &) = delete;
  TlsConnection &operator=(const TlsConnection &) = delete;

  [[nodiscard]] platform::Endpoint peer() const override { return link_->peer(); }
  void setStateHandler(StateHandler handler) override {
    link_->setStateHandler(std::move(handler));
  }
  void start() override { link_->start(); }
  void receive(ReceiveCompletion completion) override { link_->receive(std::move(completion)); }
  void send(CleansedBytes unit, SendCompletion completion) override {
    link_->send(std::move(unit), std::move(completion));
  }
  void cancel() override { link_->cancel(); }
  [[nodiscard]] std::size_t unsentBytes() const override { return link_->unsentBytes(); }
  void setHeldBytes(std::size_t frameBytes, std::size_t otherBytes) override {
    link_->setHeldBytes(frameBytes, otherBytes);
  }
  void setAuthenticated(bool isAuthenticated) override { link_->setAuthenticated(isAuthenticated); }
  void countRejection() override { link_->countRejection(); }

 private:
  std::shared_ptr<TlsLink> link_;
};

}  // namespace platform_linux
