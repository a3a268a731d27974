#pragma once

#include <chrono>

#include "base/Error.hpp"
#include "client/ErrorCodes.hpp"

namespace client {

// A time of the monotonic clock.
using Deadline = std::chrono::steady_clock::time_point;

// The default deadline: a pairing look-up can block the daemon's queue for 30 s.
inline constexpr std::chrono::seconds kDefaultWait{60};

// When a wait ends without a result.
struct WaitLimits {
  Deadline deadline = std::chrono::steady_clock::now() + kDefaultWait;
  int stopDescriptor = -1;  // the wait ends when it becomes readable; borrowed, negative: none

  [[nodiscard]] static WaitLimits within(std::chrono::milliseconds time) {
    return {std::chrono::steady_clock::now() + time, -1};
  }
};

// Waits until `descriptor` is readable (or writable, with `toWrite`), closed or failed. False with
// the code timedOut or stopped otherwise.
[[nodiscard]] bool waitFor(int descriptor, bool toWrite, const WaitLimits &limits,
                           Error *error = nullptr);

}  // namespace client
