#pragma once

namespace system_tests {

// Moves this process into a network of its own, with a loopback alone, so that the daemon's ports
// are free. False, with the reason on standard error, if that is not possible.
[[nodiscard]] bool enterOwnNetwork();

}  // namespace system_tests
