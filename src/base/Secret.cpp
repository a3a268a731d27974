#include "base/Secret.hpp"

#include <cstring>

namespace base {

void cleanse(void *memory, std::size_t size) {
  if (memory != nullptr) {
    explicit_bzero(memory, size);
  }
}

}  // namespace base
