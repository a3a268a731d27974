#include "Statistics.hpp"

#include <algorithm>
#include <cstddef>
#include <stdexcept>

namespace bench {

double percentile(std::vector<double> values, double share) {
  const auto place =
      values.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
  std::ranges::nth_element(values, place);
  return *place;
}

double median(const std::vector<double> &values) {
  return percentile(values, 0.5);
}

void check(bool isRight, const char *what) {
  if (!isRight) {
    throw std::runtime_error(what);
  }
}

}  // namespace bench
