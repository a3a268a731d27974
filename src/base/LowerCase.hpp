#pragma once

#include <string>
#include <string_view>

namespace base {

// UTF-8 text with each character mapped to its lower case on its own (Unicode's simple mapping),
// whatever the process's locale. Bytes that are no UTF-8 stay as they are.
[[nodiscard]] std::string lowerCase(std::string_view text);

}  // namespace base
