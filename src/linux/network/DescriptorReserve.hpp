#pragma once

#include <optional>

#include "platform/Network.hpp"

namespace platform_linux {

// Raises the process's soft limit of open descriptors to the hard one.
void raiseDescriptorLimit();

// The limit of open descriptors, if only the reserve for files is left: 64 descriptors, or a
// quarter of a small limit.
[[nodiscard]] std::optional<platform::Limit> reachedDescriptorReserve();

// The limit of open descriptors as it is now.
[[nodiscard]] platform::Limit descriptorLimit();

}  // namespace platform_linux
