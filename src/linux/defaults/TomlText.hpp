#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Error.hpp"
#include "platform/UserDefaults.hpp"

namespace platform_linux {

using platform::SettingValue;
using Setting = platform::StoredSetting;

// The settings in a TOML text (toml.io, v1.0.0): its top-level keys, in the order of their lines.
// Floating-point numbers, dates, arrays and tables are an UnusableValue. Nothing if the text does
// not parse: *error then has the domain "toml", the number of the line and "line N: " with the
// cause.
[[nodiscard]] std::optional<std::vector<Setting>> readSettings(std::string_view text,
                                                               Error *error = nullptr);

// The text with one top-level key set to `value` (no UnusableValue), or without the key where
// `value` is nothing. All other lines stay as they are, and so does a comment behind the value.
// Nothing, with the reason in *error, if the text does not parse, the key holds a table, or any
// other value would change.
[[nodiscard]] std::optional<std::string> withSetting(const std::string &text,
                                                     const std::string &key,
                                                     const std::optional<SettingValue> &value,
                                                     Error *error = nullptr);

}  // namespace platform_linux
