#pragma once

#include <functional>
#include <memory>

#include "base/Secret.hpp"
#include "linux/network/AsioMainQueue.hpp"
#include "platform/Network.hpp"

namespace platform_linux {

// TLS listeners on Boost.Asio and OpenSSL.
class TlsNetwork final : public platform::Network {
 public:
  // `limits` is asked anew whenever a limit matters; what is refused or dropped is told to
  // `reporter`.
  TlsNetwork(AsioMainQueue &queue, std::function<platform::ConnectionLimits()> limits,
             platform::LimitReporter reporter);

  [[nodiscard]] std::unique_ptr<platform::Listener> createListener(
      const platform::ListenerParameters &parameters) override;

 private:
  AsioMainQueue &queue_;
  std::function<platform::ConnectionLimits()> limits_;
  platform::LimitReporter reporter_;
  std::shared_ptr<CleansedBytes> buffer_;  // for one chunk at a time
};

}  // namespace platform_linux
