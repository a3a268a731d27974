#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <cstdint>
#include <memory>
#include <optional>
#include <unordered_set>

#include "base/Secret.hpp"
#include "crypto/TlsChannel.hpp"
#include "linux/network/AsioMainQueue.hpp"
#include "linux/network/TlsLink.hpp"
#include "platform/Network.hpp"

namespace platform_linux {

// Accepts sockets, does their handshakes and hands over what is established.
class TlsListener final : public platform::Listener {
 public:
  TlsListener(AsioMainQueue &queue, const platform::ListenerParameters &parameters,
              std::shared_ptr<CleansedBytes> buffer);
  ~TlsListener() override;
  TlsListener(const TlsListener &) = delete;
  TlsListener &operator=(const TlsListener &) = delete;

  [[nodiscard]] std::uint16_t port() const override { return port_; }
  void setStateHandler(StateHandler handler) override;
  void setConnectionHandler(ConnectionHandler handler) override;
  void setFailedHandshakeHandler(FailedHandshakeHandler handler) override;
  void start() override;

 private:
  [[nodiscard]] int open();
  void report(platform::ListenerState state, int errorNumber);
  void waitForSockets();
  void acceptSockets();
  void pauseAccepting();
  void shakeHands(boost::asio::ip::tcp::socket socket);
  void prepare(boost::asio::ip::tcp::socket &socket) const;
  void handOver(const std::shared_ptr<TlsLink> &link, int errorNumber);

  AsioMainQueue &queue_;
  platform::ListenerParameters parameters_;
  std::shared_ptr<CleansedBytes> buffer_;
  std::optional<crypto::TlsContext> context_;
  boost::asio::ip::tcp::acceptor acceptor_;
  boost::asio::steady_timer retry_;
  std::uint16_t port_ = 0;
  StateHandler stateHandler_;
  ConnectionHandler connectionHandler_;
  FailedHandshakeHandler failedHandshakeHandler_;
  std::unordered_set<std::shared_ptr<TlsLink>> handshaking_;
  std::shared_ptr<TlsListener *>
      self_;  // shared with events that may come after this object has gone
};

}  // namespace platform_linux
