#pragma once

#include <atomic>
#include <new>

#include "driver/Pkcs11.hpp"

namespace driver {

// Where handles of sessions and objects come from: each is a number that was not given before, and
// below 2^31, because some programs keep them in a signed integer. Throws std::bad_alloc at the end
// of the numbers.
class Handles {
 public:
  [[nodiscard]] CK_ULONG next() {
    const CK_ULONG number = last_.fetch_add(1) + 1;
    if (number >= (CK_ULONG{1} << 31U)) {
      throw std::bad_alloc();
    }
    return number;
  }

 private:
  std::atomic<CK_ULONG> last_{CK_INVALID_HANDLE};
};

}  // namespace driver
