#include "linux/network/TlsNetwork.hpp"

#include "crypto/TlsChannel.hpp"
#include "linux/network/DescriptorReserve.hpp"
#include "linux/network/TlsListener.hpp"

namespace platform_linux {
namespace {

// Room for a chunk: a full record and a short one that follows it.
constexpr std::size_t kChunkBytes = crypto::kTlsRecordBytes + 8;

}  // namespace

TlsNetwork::TlsNetwork(AsioMainQueue &queue,
                       const std::function<platform::ConnectionLimits()> &limits,
                       const platform::LimitReporter &reporter)
    : resources_(std::make_shared<NetworkResources>(NetworkResources{
          queue, CleansedBytes(kChunkBytes), std::make_shared<UnauthenticatedTurns>(queue),
          std::make_shared<BufferQuota>(limits, reporter),
          std::make_shared<StallWatch>(queue, limits, reporter), std::make_shared<HeapTrim>(queue),
          reporter})) {
  raiseDescriptorLimit();
}

std::unique_ptr<platform::Listener> TlsNetwork::createListener(
    const platform::ListenerParameters &parameters) {
  return std::make_unique<TlsListener>(resources_, parameters);
}

}  // namespace platform_linux
