#include "requests/UnpairedDevices.hpp"

#include <utility>

namespace requests {
namespace {

constexpr std::size_t kMostDevices = 16;

}  // namespace

void UnpairedDevices::note(UnpairedDevice device) {
  forget(device.publicKeyHash);
  if (devices_.size() == kMostDevices) {
    devices_.erase(devices_.begin());
  }
  devices_.push_back(std::move(device));
}

void UnpairedDevices::forget(ByteView publicKeyHash) {
  std::erase_if(devices_, [&](const UnpairedDevice &device) {
    return base::equal(device.publicKeyHash, publicKeyHash);
  });
}

}  // namespace requests
