#include "client/Backoff.hpp"

#include <algorithm>
#include <cstdint>
#include <random>

namespace client {

std::chrono::milliseconds Backoff::next(double jitter) {
  const auto wait = wait_;
  wait_ = std::min(wait_ * 2, longest_);
  return wait - std::chrono::milliseconds(
                    static_cast<std::int64_t>(static_cast<double>(wait.count()) * jitter / 4));
}

std::chrono::milliseconds Backoff::next() {
  std::random_device device;
  return next(std::uniform_real_distribution<double>(0, 1)(device));
}

}  // namespace client
