#include "logging/LimitLog.hpp"

#include <chrono>

#include "logging/CVNLog.hpp"

namespace logging {
namespace {

constexpr std::chrono::seconds kSilence{10};

}  // namespace

void LimitLog::reached(const platform::ReachedLimit &reached) {
  Account &account = accounts_[std::string(reached.limit.setting)];
  ++account.times;
  if (observer_) {
    observer_();
  }
  const auto now = clock_.now();
  // a clock that was set back does not silence it for longer
  const bool isSilent =
      account.timesSaid > 0 && now >= account.lastLine && now - account.lastLine < kSilence;
  if (isSilent) {
    return;
  }
  const std::uint64_t unsaid = account.times - account.timesSaid - 1;
  account.lastLine = now;
  account.timesSaid = account.times;
  if (unsaid == 0) {
    CVNLog("%s (limit %s is %lu)", reached.consequence, reached.limit.setting, reached.limit.most);
  } else {
    CVNLog("%s (limit %s is %lu; %lu more times since the last such line)", reached.consequence,
           reached.limit.setting, reached.limit.most, unsaid);
  }
}

std::map<std::string, std::uint64_t> LimitLog::counts() const {
  std::map<std::string, std::uint64_t> counts;
  for (const auto &[setting, account] : accounts_) {
    counts.emplace(setting, account.times);
  }
  return counts;
}

}  // namespace logging
