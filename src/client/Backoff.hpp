#pragma once

#include <chrono>

namespace client {

// How long to wait between the beginnings of two attempts to connect: 1 s, or `first`, doubled
// after each failure up to 4 s, or `longest`, each time less up to a quarter by jitter, so that
// many clients of a daemon that was restarted don't come back at the same instant.
class Backoff {
 public:
  Backoff() = default;
  Backoff(std::chrono::milliseconds first, std::chrono::milliseconds longest)
      : first_(first), longest_(longest) {}

  // The wait before the next attempt. `jitter` is uniform in [0, 1).
  [[nodiscard]] std::chrono::milliseconds next(double jitter);

  // The same with a jitter of its own.
  [[nodiscard]] std::chrono::milliseconds next();

  // After an attempt that went well: the next wait is the first one again.
  void reset() { wait_ = first_; }

  static constexpr std::chrono::milliseconds kFirst{1000};
  // However long the outage was, a client is back within 5 s of its end, the handshake included.
  static constexpr std::chrono::milliseconds kLongest{4000};

 private:
  std::chrono::milliseconds first_ = kFirst;
  std::chrono::milliseconds longest_ = kLongest;
  std::chrono::milliseconds wait_ = first_;
};

}  // namespace client
