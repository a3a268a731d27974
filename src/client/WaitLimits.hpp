#pragma once

#include <chrono>

#include "base/Error.hpp"
#include "client/ErrorCodes.hpp"

namespace client {

// On the monotonic clock.
using Deadline = std::chrono::steady_clock::time_point;

// How long a call waits by default: a look-up of the pairing can hold the daemon's queue for half a
// minute.
inline constexpr std::chrono::seconds kDefaultWait{60};

// How long a call may wait, and what else ends its wait.
struct WaitLimits {
  Deadline deadline = std::chrono::steady_clock::now() + kDefaultWait;
  int stopDescriptor = -1;  // the wait also ends when this can be read; borrowed, negative: none

  [[nodiscard]] static WaitLimits within(std::chrono::milliseconds time) {
    return {std::chrono::steady_clock::now() + time, -1};
  }
};

// Waits until `descriptor` can be read, and written where `toWrite`, or has ended or failed. False
// with the code timedOut or stopped otherwise.
[[nodiscard]] bool waitFor(int descriptor, bool toWrite, const WaitLimits &limits,
                           Error *error = nullptr);

}  // namespace client
