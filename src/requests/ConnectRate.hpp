#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <unordered_map>

#include "platform/Clock.hpp"

namespace requests {

// How often each address has begun to authenticate within the last minute. Remembers 4,096
// addresses; past that the one that was heard of longest ago is forgotten.
class ConnectRate {
 public:
  // True, and one more is counted, if `source` has had less than `most` in the minute before `now`.
  // Times that a clock which was set back leaves in the future count no more.
  [[nodiscard]] bool admits(const std::string &source, std::uint64_t most,
                            platform::Clock::Time now);

 private:
  using Times = std::deque<platform::Clock::Time>;  // of one source, the oldest first; never empty

  void makeRoom();

  std::unordered_map<std::string, Times> times_;
};

}  // namespace requests
