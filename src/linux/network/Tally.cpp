#include "linux/network/Tally.hpp"

#include <utility>

namespace platform_linux {

Place Tally::take(const std::string &source) {
  // Made before anything is counted: a count that no place gives back would stay for ever.
  auto leave = [counts = counts_, source](const void * /*same*/) {
    --counts->all;
    const auto entry = counts->bySource.find(source);
    if (entry != counts->bySource.end() && --entry->second == 0) {
      counts->bySource.erase(entry);
    }
  };
  if (!source.empty()) {
    ++counts_->bySource[source];
  }
  ++counts_->all;
  return {counts_.get(), std::move(leave)};
}

std::size_t Tally::of(const std::string &source) const {
  const auto entry = counts_->bySource.find(source);
  return entry == counts_->bySource.end() ? 0 : entry->second;
}

}  // namespace platform_linux
