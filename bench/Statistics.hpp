#pragma once

#include <chrono>
#include <vector>

namespace bench {

// The value that this share of all does not exceed; there must be one at least.
[[nodiscard]] double percentile(std::vector<double> values, double share);
[[nodiscard]] double median(const std::vector<double> &values);

// Throws if this did not come as it must; nothing that is wrong is measured.
void check(bool isRight, const char *what);

using Clock = std::chrono::steady_clock;

[[nodiscard]] inline double microsecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

// How long `work` takes, in microseconds.
template <typename Work>
[[nodiscard]] double timed(const Work &work) {
  const auto start = Clock::now();
  work();
  return microsecondsSince(start);
}

}  // namespace bench
