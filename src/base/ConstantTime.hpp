#pragma once

#include "base/Secret.hpp"

namespace base {

// True if both hold the same. Its time does not tell where they differ; the lengths are not hidden.
[[nodiscard]] bool equalInConstantTime(const SecretText &left, const SecretText &right);

}  // namespace base
