#pragma once

#include <boost/asio/steady_timer.hpp>
#include <functional>
#include <memory>
#include <vector>

#include "linux/network/AsioMainQueue.hpp"
#include "platform/Network.hpp"

namespace platform_linux {

class TlsLink;

// Drops links whose peers acknowledge nothing any more. It looks once a second at each link that
// has read or sent something, until all is acknowledged. The kernel's TCP user timeout would not
// do: it replaces the keepalive's count of probes.
class StallWatch : public std::enable_shared_from_this<StallWatch> {
 public:
  StallWatch(AsioMainQueue &queue, std::function<platform::ConnectionLimits()> limits,
             platform::LimitReporter reporter);

  // Watches a link until its checkAcknowledgements() returns nothing.
  void watch(std::weak_ptr<TlsLink> link);

 private:
  void arm();
  void sweep();
  [[nodiscard]] bool dropIfStalled(TlsLink &link);

  std::function<platform::ConnectionLimits()> limits_;
  platform::LimitReporter reporter_;
  boost::asio::steady_timer timer_;
  bool isArmed_ = false;
  std::vector<std::weak_ptr<TlsLink>> watched_;
};

}  // namespace platform_linux
