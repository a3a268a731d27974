#pragma once

#include "base/Secret.hpp"

namespace base {

// True if both hold the same bytes. Its time does not reveal where they differ, only the lengths.
[[nodiscard]] bool equalInConstantTime(const SecretText &left, const SecretText &right);

}  // namespace base
