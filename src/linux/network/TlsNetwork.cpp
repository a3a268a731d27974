#include "linux/network/TlsNetwork.hpp"

#include <utility>

#include "crypto/TlsChannel.hpp"
#include "linux/network/TlsListener.hpp"

namespace platform_linux {
namespace {

// Room for a chunk: a full record and a short one that follows it.
constexpr std::size_t kChunkBytes = crypto::kTlsRecordBytes + 8;

}  // namespace

TlsNetwork::TlsNetwork(AsioMainQueue &queue, std::function<platform::ConnectionLimits()> limits,
                       platform::LimitReporter reporter)
    : queue_(queue),
      limits_(std::move(limits)),
      reporter_(std::move(reporter)),
      buffer_(std::make_shared<CleansedBytes>(kChunkBytes)) {}

std::unique_ptr<platform::Listener> TlsNetwork::createListener(
    const platform::ListenerParameters &parameters) {
  return std::make_unique<TlsListener>(queue_, parameters, buffer_);
}

}  // namespace platform_linux
