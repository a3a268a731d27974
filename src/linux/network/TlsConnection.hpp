#pragma once

#include <memory>
#include <utility>

#include "linux/network/TlsLink.hpp"
#include "platform/Network.hpp"

namespace platform_linux {

// What others hold of a link: when the last of them lets go, the link closes.
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
  void holds(std::size_t frameBytes, std::size_t otherBytes) override {
    link_->holds(frameBytes, otherBytes);
  }
  void setAuthenticated(bool isAuthenticated) override { link_->setAuthenticated(isAuthenticated); }
  void rejected() override { link_->rejected(); }

 private:
  std::shared_ptr<TlsLink> link_;
};

}  // namespace platform_linux
