#pragma once

#include <memory>

#include "base/Secret.hpp"
#include "linux/network/AsioMainQueue.hpp"
#include "platform/Network.hpp"

namespace platform_linux {

// TLS listeners on Boost.Asio and OpenSSL.
class TlsNetwork final : public platform::Network {
 public:
  explicit TlsNetwork(AsioMainQueue &queue);

  [[nodiscard]] std::unique_ptr<platform::Listener> createListener(
      const platform::ListenerParameters &parameters) override;

 private:
  AsioMainQueue &queue_;
  std::shared_ptr<CleansedBytes> buffer_;  // for one chunk at a time
};

}  // namespace platform_linux
