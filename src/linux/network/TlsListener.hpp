#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>

#include "crypto/TlsChannel.hpp"
#include "linux/network/Admission.hpp"
#include "linux/network/NetworkResources.hpp"
#include "linux/network/TlsHandshake.hpp"
#include "platform/Network.hpp"

namespace platform_linux {

// Accepts sockets, does their handshakes and hands over what is established.
class TlsListener final : public platform::Listener {
 public:
  TlsListener(std::shared_ptr<NetworkResources> resources,
              const platform::ListenerParameters &parameters);
  ~TlsListener() override;
  TlsListener(const TlsListener &) = delete;
  TlsListener &operator=(const TlsListener &) = delete;

  [[nodiscard]] std::uint16_t port() const override { return port_; }
  void setStateHandler(StateHandler handler) override;
  void setConnectionHandler(ConnectionHandler handler) override;
  void setFailedHandshakeHandler(FailedHandshakeHandler handler) override;
  void start() override;

 private:
  struct Unfinished {
    std::shared_ptr<TlsHandshake> handshake;
    std::string source;  // as `admission_` counts it
    Place place;
  };

  [[nodiscard]] int open();
  void report(platform::ListenerState state, int errorNumber);
  void waitForSockets();
  void acceptWhatCame();
  void acceptSockets();
  void pauseAccepting(const platform::Limit &descriptors);
  void retryLater();
  void admit(boost::asio::ip::tcp::socket socket);
  [[nodiscard]] std::optional<platform::Limit> makeRoomFor(const Candidate &candidate,
                                                           const platform::ListenerLimits &limits);
  [[nodiscard]] bool evictOldest(const platform::Limit &limit,
                                 const std::function<bool(const Unfinished &)> &isOfPool);
  void shakeHands(boost::asio::ip::tcp::socket socket, const Candidate &candidate,
                  std::chrono::milliseconds time);
  void handOver(const std::shared_ptr<TlsHandshake> &handshake, int errorNumber);

  std::shared_ptr<NetworkResources> resources_;
  platform::ListenerParameters parameters_;
  Admission admission_;
  std::shared_ptr<HandshakeTurns> turns_;
  std::optional<crypto::TlsContext> context_;
  boost::asio::ip::tcp::acceptor acceptor_;
  boost::asio::steady_timer retry_;
  bool isPaused_ = false;  // for want of descriptors
  std::uint16_t port_ = 0;
  StateHandler stateHandler_;
  ConnectionHandler connectionHandler_;
  FailedHandshakeHandler failedHandshakeHandler_;
  std::list<Unfinished> unfinished_;     // the oldest first
  std::shared_ptr<TlsListener *> self_;  // null once this object has gone; events may come later
};

}  // namespace platform_linux
