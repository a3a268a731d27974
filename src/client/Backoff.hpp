#pragma once

#include <chrono>

namespace client {

// The delay before the next connection attempt. It starts at 1 s (or `first`), doubles after each
// failure up to 4 s (or `longest`), and is shortened by up to a quarter at random, so that the
// clients of a restarted daemon don't all reconnect at once.
class Backoff {
 public:
  Backoff() = default;
  Backoff(std::chrono::milliseconds first, std::chrono::milliseconds longest)
      : first_(first), longest_(longest) {}

  // The delay before the next attempt. `jitter` is uniform in [0, 1).
  [[nodiscard]] std::chrono::milliseconds next(double jitter);

  // The same with a random jitter.
  [[nodiscard]] std::chrono::milliseconds next();

  // Call after a successful attempt: the next delay is the first one again.
  void reset() { wait_ = first_; }

  static constexpr std::chrono::milliseconds kFirst{1000};
  // A client reconnects within 5 s of the end of any outage, the handshake included.
  static constexpr std::chrono::milliseconds kLongest{4000};

 private:
  std::chrono::milliseconds first_ = kFirst;
  std::chrono::milliseconds longest_ = kLongest;
  std::chrono::milliseconds wait_ = first_;
};

}  // namespace client
