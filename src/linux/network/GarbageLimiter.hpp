#pragma once

#include <chrono>

namespace platform_linux {

// Counts the chunks and frames that the owner of a connection rejected.
class GarbageLimiter {
 public:
  // True for the hundredth within a second of the first. The count then starts again.
  [[nodiscard]] bool add(std::chrono::steady_clock::time_point now) {
    if (count_ == 0 || now - first_ > std::chrono::seconds(1)) {
      first_ = now;
      count_ = 0;
    }
    if (++count_ < kMany) {
      return false;
    }
    count_ = 0;
    return true;
  }

 private:
  static constexpr int kMany = 100;

  std::chrono::steady_clock::time_point first_;
  int count_ = 0;
};

}  // namespace platform_linux
