#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace platform_linux {

// The program that listens on this TCP port, as "NAME (process NUMBER)"; nothing if none does, or
// if it is not this user's to know. Reads /proc (proc(5)).
[[nodiscard]] std::optional<std::string> ownerOfPort(std::uint16_t port);

}  // namespace platform_linux
