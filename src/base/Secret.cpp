#include "base/Secret.hpp"

#include <algorithm>
#include <cstring>

namespace base {

void cleanse(void *memory, std::size_t size) {
  if (memory != nullptr) {
    explicit_bzero(memory, size);
  }
}

std::span<std::uint8_t> extend(CleansedBytes &bytes, std::size_t count) {
  const std::size_t size = bytes.size();
  if (bytes.capacity() - size < count) {
    CleansedBytes larger;
    larger.reserve(std::max(size + count, 2 * bytes.capacity()));
    larger.resize(size);
    copy(bytes, larger.data());
    bytes.swap(larger);
  }
  bytes.resize(size + count);
  return std::span(bytes).subspan(size);
}

void append(CleansedBytes &bytes, ByteView more) {
  copy(more, extend(bytes, more.size()).data());
}

}  // namespace base
