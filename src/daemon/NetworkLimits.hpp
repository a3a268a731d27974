#pragma once

#include "platform/Network.hpp"
#include "platform/UserDefaults.hpp"

namespace kfyd {

// The limits of connections and listeners, as the settings give them.
[[nodiscard]] platform::ConnectionLimits connectionLimits(platform::UserDefaults &defaults);
[[nodiscard]] platform::ListenerLimits listenerLimits(platform::UserDefaults &defaults,
                                                      bool isLoopback);

}  // namespace kfyd
