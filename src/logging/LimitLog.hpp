#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>

#include "platform/Clock.hpp"
#include "platform/Network.hpp"

namespace logging {

// Logs which limits were reached: at most one line for each setting within ten seconds, with the
// number of times that were not logged.
class LimitLog {
 public:
  explicit LimitLog(platform::Clock &clock) : clock_(clock) {}

  void reached(const platform::ReachedLimit &reached);

  // Sets the function to call when a count has changed; it replaces the earlier one.
  void setObserver(std::function<void()> observer) { observer_ = std::move(observer); }

  // How often each setting's limit was reached since the start.
  [[nodiscard]] std::map<std::string, std::uint64_t> counts() const;

 private:
  struct Account {
    platform::Clock::Time lastLine;
    std::uint64_t times = 0;
    std::uint64_t timesSaid = 0;
  };

  platform::Clock &clock_;
  std::function<void()> observer_;
  std::map<std::string, Account, std::less<>> accounts_;  // by setting
};

}  // namespace logging
