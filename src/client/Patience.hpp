#pragma once

#include <chrono>

#include "base/Error.hpp"

namespace client {

// The domain of this folder's errors, and their codes.
inline constexpr const char *kErrorDomain = "client";
enum ErrorCode : int {
  cannotResolve = 1,    // the host's name has no address
  unreachable = 2,      // refused, or no way to any of its addresses
  handshakeFailed = 3,  // somebody answers, but TLS does not come about
  keyNotPinned = 4,     // the judge did not accept the certificate; nothing was sent
  timedOut = 5,         // the deadline has passed; the connection, if there was one, still stands
  peerEnded = 6,        // the peer has ended the connection in order
  connectionLost = 7,   // reset, keepalive, TLS error, or a frame beyond all bounds
  stopped = 8,          // the stop descriptor ended the wait
  notSendable = 9,      // the message lacks a field that its command requires
  pinUnusable = 10,     // the file with the pinned certificate can't be read or holds none
};

// On the monotonic clock.
using Deadline = std::chrono::steady_clock::time_point;

// How long a call waits by default: a look-up of the pairing can hold the daemon's queue for half a
// minute.
inline constexpr std::chrono::seconds kDefaultWait{60};

// How long a call may wait, and what else ends its wait.
struct Patience {
  Deadline deadline = std::chrono::steady_clock::now() + kDefaultWait;
  int stopDescriptor = -1;  // the wait also ends when this can be read; borrowed, negative: none

  [[nodiscard]] static Patience lasting(std::chrono::milliseconds time) {
    return {std::chrono::steady_clock::now() + time, -1};
  }
};

// Waits until `descriptor` can be read, and written where `toWrite`, or has ended or failed. False
// with the code timedOut or stopped otherwise.
[[nodiscard]] bool waitFor(int descriptor, bool toWrite, const Patience &patience,
                           Error *error = nullptr);

}  // namespace client
