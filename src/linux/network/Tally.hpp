#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <unordered_map>

namespace platform_linux {

// A place that is taken as long as this is held.
using Place = std::shared_ptr<const void>;

// Counts what is there, in all and by where it came from.
class Tally {
 public:
  // Takes a place for `source`; one without a name counts in all alone.
  [[nodiscard]] Place take(const std::string &source);

  [[nodiscard]] std::size_t all() const { return counts_->all; }
  [[nodiscard]] std::size_t of(const std::string &source) const;

 private:
  struct Counts {
    std::size_t all = 0;
    std::unordered_map<std::string, std::size_t> bySource;
  };

  std::shared_ptr<Counts> counts_ = std::make_shared<Counts>();  // places may outlive this object
};

}  // namespace platform_linux
