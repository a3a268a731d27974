#pragma once

#include <boost/asio/steady_timer.hpp>
#include <functional>
#include <memory>
#include <vector>

#include "linux/network/AsioMainQueue.hpp"
#include "platform/Network.hpp"

namespace platform_linux {

class TlsLink;

// Looks once a second at the links that have sent something, until all of it is acknowledged, and
// drops those whose peers acknowledge nothing any more. A timer of ours, since a TCP user timeout
// would replace the keepalive's own count of probes.
class StallWatch : public std::enable_shared_from_this<StallWatch> {
 public:
  StallWatch(AsioMainQueue &queue, std::function<platform::ConnectionLimits()> limits,
             platform::LimitReporter reporter);

  // Begins to look at a link, which says itself when that is over.
  void watch(std::weak_ptr<TlsLink> link);

 private:
  void arm();
  void sweep();
  [[nodiscard]] bool staysWatched(TlsLink &link);

  std::function<platform::ConnectionLimits()> limits_;
  platform::LimitReporter reporter_;
  boost::asio::steady_timer timer_;
  bool isArmed_ = false;
  std::vector<std::weak_ptr<TlsLink>> watched_;
};

}  // namespace platform_linux
