#include "base/Secret.hpp"

#include <cstring>

namespace base {

void cleanse(void *memory, std::size_t size) {
  if (memory != nullptr) {
    explicit_bzero(memory, size);
  }
}

bool equalInConstantTime(ByteView left, ByteView right) {
  if (left.size() != right.size()) {
    return false;
  }
  // volatile keeps the compiler from leaving the loop at the first difference
  volatile std::uint8_t difference = 0;
  for (std::size_t index = 0; index < left.size(); ++index) {
    difference = static_cast<std::uint8_t>(difference | (left[index] ^ right[index]));
  }
  return difference == 0;
}

}  // namespace base
