#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "base/BooleanText.hpp"

namespace platform {

// What a setting can hold. Whatever else stands in a file (an array, a date, …) counts as absent.
struct UnusableValue {
  std::string kind;  // for people: "an array"

  bool operator==(const UnusableValue &) const = default;
};
using SettingValue = std::variant<bool, std::int64_t, std::string, UnusableValue>;

// What a value is as a boolean: see UserDefaults::boolean. Nothing if it counts as absent.
[[nodiscard]] inline std::optional<bool> booleanOf(const SettingValue &value) {
  if (const auto *const text = std::get_if<std::string>(&value)) {
    return base::booleanFromText(*text).value_or(false);
  }
  if (const auto *const number = std::get_if<std::int64_t>(&value)) {
    return *number != 0;
  }
  const auto *const boolean = std::get_if<bool>(&value);
  return boolean == nullptr ? std::nullopt : std::optional(*boolean);
}

// What a file says about one setting.
struct StoredSetting {
  std::string key;
  SettingValue value;
};

// The domain of the process's standard user defaults.
inline constexpr std::string_view kStandardDefaults = "kfyd";

// Settings, by domain and key. A change by somebody else is seen at the next look-up, without a
// restart. Takes calls from any thread. A look-up never fails: what is absent, unusable or of
// another type gives nothing.
class UserDefaults {
 public:
  virtual ~UserDefaults() = default;

  // The text under `key`; nothing if there is none or the value is no text.
  [[nodiscard]] virtual std::optional<std::string> text(std::string_view domain,
                                                        std::string_view key) = 0;

  // True for true, a non-zero integer, "yes", "true" and "1" in any case, false for any other text
  // and number; nothing when absent.
  [[nodiscard]] virtual std::optional<bool> boolean(std::string_view domain,
                                                    std::string_view key) = 0;

  // The integer under `key`; nothing if there is none or the value is no integer.
  [[nodiscard]] virtual std::optional<std::int64_t> integer(std::string_view domain,
                                                            std::string_view key) = 0;
};

}  // namespace platform
