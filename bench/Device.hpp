#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Child.hpp"

namespace bench {

// The device: a kfy-remote that holds the card's key and is connected to the machine.
class Device {
 public:
  // Returns when the card is inserted; `port` leads to the daemon's public one. `folder` holds
  // card.pem.
  Device(const std::string &kfyRemote, const std::string &folder, std::uint16_t port);
  // Returns when the card is gone.
  ~Device();
  Device(const Device &) = delete;
  Device &operator=(const Device &) = delete;

 private:
  std::unique_ptr<Child> remote_;
};

}  // namespace bench
