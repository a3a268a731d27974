#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "linux/network/AsioMainQueue.hpp"
#include "linux/network/Endpoints.hpp"
#include "linux/network/NetworkResources.hpp"
#include "platform/Network.hpp"

namespace platform_linux {

// TLS listeners on Boost.Asio and OpenSSL.
class TlsNetwork final : public platform::Network {
 public:
  // `limits` is asked anew whenever a limit matters; what is refused or dropped is told to
  // `reporter`. Raises the process's soft limit of open descriptors to the hard one.
  TlsNetwork(AsioMainQueue &queue, const std::function<platform::ConnectionLimits()> &limits,
             const platform::LimitReporter &reporter);

  [[nodiscard]] std::unique_ptr<platform::Listener> createListener(
      const platform::ListenerParameters &parameters) override;
  [[nodiscard]] std::optional<std::string> ownerOfPort(std::uint16_t port) override {
    return platform_linux::ownerOfPort(port);
  }

 private:
  std::shared_ptr<NetworkResources> resources_;
};

}  // namespace platform_linux
