#include "support/Settings.hpp"

#include <algorithm>

namespace support {
namespace {

constexpr std::int64_t kLargest = std::int64_t{1} << 31;

}  // namespace

std::int64_t valueOf(const Bound &bound, platform::UserDefaults &defaults) {
  const auto value = defaults.integer(platform::kStandardDefaults, bound.key);
  return value && *value >= bound.least ? std::min(*value, kLargest) : bound.valueIfAbsent;
}

bool isOn(const Switch &setting, platform::UserDefaults &defaults) {
  return defaults.boolean(platform::kStandardDefaults, setting.key).value_or(setting.valueIfAbsent);
}

}  // namespace support
