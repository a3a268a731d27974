#pragma once

#include <optional>
#include <string_view>

namespace base {

// True for "yes", "true" and "1", false for "no", "false" and "0", ignoring case. Nothing for any
// other text.
[[nodiscard]] std::optional<bool> booleanFromText(std::string_view text);

}  // namespace base
