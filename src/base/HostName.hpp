#pragma once

#include <string>

namespace base {

// The name that this machine gives itself; may be empty.
[[nodiscard]] std::string hostName();

}  // namespace base
