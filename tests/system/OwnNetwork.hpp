#pragma once

namespace system_tests {

// Moves this process into a network of its own, with a loopback alone, so that the daemon's ports
// are free. False, with the reason on standard error, if that is not possible.
[[nodiscard]] bool enterOwnNetwork();

// Takes that loopback down, as a link that breaks, or up again.
[[nodiscard]] bool setLoopback(bool isUp);

}  // namespace system_tests
