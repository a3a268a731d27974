#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <unordered_map>

#include "platform/Clock.hpp"

namespace requests {

// Counts how often each address has begun to authenticate within the last minute. It remembers
// 4,096 addresses; beyond that it forgets the one that was silent longest.
class ConnectRate {
 public:
  // Counts an attempt and returns true if `source` made fewer than `most` in the minute before
  // `now`. Attempts in the future, which a clock that was set back leaves, are ignored.
  [[nodiscard]] bool tryAcquire(const std::string &source, std::uint64_t most,
                                platform::Clock::Time now);

 private:
  using Times = std::deque<platform::Clock::Time>;  // of one source, the oldest first; never empty

  void makeRoom();

  std::unordered_map<std::string, Times> times_;
};

}  // namespace requests
