#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

// The domain of the process's standard user defaults.
inline constexpr std::string_view kStandardDefaults = "kfyd";

// Settings, by domain and key. A change by somebody else is seen at the next look-up, without a
// restart. A look-up never fails: what is absent, unusable or of another type gives nothing.
class UserDefaults {
 public:
  virtual ~UserDefaults() = default;

  // The text under `key`; nothing if there is none or the value is no text.
  [[nodiscard]] virtual std::optional<std::string> text(std::string_view domain,
                                                        std::string_view key) = 0;

  // True for true, a non-zero integer, "YES" and "true", false for any other value; nothing when
  // absent.
  [[nodiscard]] virtual std::optional<bool> boolean(std::string_view domain,
                                                    std::string_view key) = 0;

  // The integer under `key`; nothing if there is none or the value is no integer.
  [[nodiscard]] virtual std::optional<std::int64_t> integer(std::string_view domain,
                                                            std::string_view key) = 0;
};

}  // namespace platform
