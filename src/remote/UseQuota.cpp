#include "remote/UseQuota.hpp"

#include <algorithm>

namespace remote {

bool UseQuota::tryAcquire(const std::shared_ptr<const void> &use, std::size_t bytes) {
  std::erase_if(waiting_, [](const Entry &entry) { return entry.use.expired(); });
  std::size_t held = bytes;
  for (const Entry &entry : waiting_) {
    held += entry.bytes;
  }
  if (!waiting_.empty() && (waiting_.size() >= kMostUses || held > kMostBytes)) {
    return false;
  }
  waiting_.push_back({use, bytes});
  return true;
}

bool UseQuota::isFree() const {
  return std::ranges::all_of(waiting_, [](const Entry &entry) { return entry.use.expired(); });
}

}  // namespace remote
