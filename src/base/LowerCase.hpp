#pragma once

#include <string>
#include <string_view>

namespace base {

// Maps each character of UTF-8 text to lower case (Unicode's simple case mapping), whatever the
// process's locale. Bytes that are no UTF-8 are not changed.
[[nodiscard]] std::string lowerCase(std::string_view text);

}  // namespace base
