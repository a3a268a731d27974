#pragma once

#include "platform/Network.hpp"
#include "platform/UserDefaults.hpp"

namespace kfyd {

// What the settings say that connections may hold, and what a listener refuses.
[[nodiscard]] platform::ConnectionLimits connectionLimits(platform::UserDefaults &defaults);
[[nodiscard]] platform::ListenerLimits listenerLimits(platform::UserDefaults &defaults,
                                                      bool isLoopback);

}  // namespace kfyd
