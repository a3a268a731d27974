#pragma once

#include <span>
#include <string>
#include <vector>

#include "base/Bytes.hpp"
#include "platform/Clock.hpp"

namespace requests {

// A remote client that wanted to authenticate with a key that is paired with nobody.
struct UnpairedDevice {
  std::string address;
  Bytes publicKeyHash;  // SHA-1 of the exported public key
  platform::Clock::Time lastTried;
};

// The devices that have tried last, so that the administrator can pair one without copying its
// hash. Anybody can appear here: it is no proof that a device holds the key.
class UnpairedDevices {
 public:
  // The newest are kept; one with the same key is replaced.
  void note(UnpairedDevice device);

  // The key has proved to be paired.
  void forget(ByteView publicKeyHash);

  // From the oldest to the newest.
  [[nodiscard]] std::span<const UnpairedDevice> devices() const { return devices_; }

 private:
  std::vector<UnpairedDevice> devices_;
};

}  // namespace requests
