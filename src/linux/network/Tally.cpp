#include "linux/network/Tally.hpp"

namespace platform_linux {

Place Tally::take(const std::string &source) {
  ++counts_->all;
  if (!source.empty()) {
    ++counts_->bySource[source];
  }
  return {counts_.get(), [counts = counts_, source](const void * /*same*/) {
            --counts->all;
            const auto entry = counts->bySource.find(source);
            if (entry != counts->bySource.end() && --entry->second == 0) {
              counts->bySource.erase(entry);
            }
          }};
}

std::size_t Tally::of(const std::string &source) const {
  const auto entry = counts_->bySource.find(source);
  return entry == counts_->bySource.end() ? 0 : entry->second;
}

}  // namespace platform_linux
