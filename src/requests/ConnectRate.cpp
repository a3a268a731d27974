#include "requests/ConnectRate.hpp"

#include <algorithm>
#include <chrono>
#include <cstddef>

namespace requests {
namespace {

constexpr std::chrono::minutes kSpan{1};
constexpr std::size_t kMostSources = 4096;

}  // namespace

bool ConnectRate::tryAcquire(const std::string &source, std::uint64_t most,
                             platform::Clock::Time now) {
  auto place = times_.find(source);
  if (place != times_.end()) {
    std::erase_if(place->second, [now](auto time) { return time > now || now - time >= kSpan; });
    if (place->second.size() >= most) {
      return false;
    }
  } else {
    makeRoom();
    place = times_.emplace(source, Times{}).first;
  }
  place->second.push_back(now);
  return true;
}

void ConnectRate::makeRoom() {
  if (times_.size() >= kMostSources) {
    times_.erase(std::ranges::min_element(times_, {},
                                          [](const auto &entry) { return entry.second.back(); }));
  }
}

}  // namespace requests
