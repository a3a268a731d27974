#include "base/ConstantTime.hpp"

#include <cstddef>
#include <cstdint>

namespace base {

bool equalInConstantTime(const SecretText &left, const SecretText &right) {
  const ByteView leftBytes = viewOf(left.reveal());
  const ByteView rightBytes = viewOf(right.reveal());
  if (leftBytes.size() != rightBytes.size()) {
    return false;
  }
  // volatile keeps the compiler from leaving the loop at the first difference
  volatile std::uint8_t difference = 0;
  for (std::size_t index = 0; index < leftBytes.size(); ++index) {
    difference = static_cast<std::uint8_t>(difference | (leftBytes[index] ^ rightBytes[index]));
  }
  return difference == 0;
}

}  // namespace base
