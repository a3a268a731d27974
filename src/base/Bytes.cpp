#include "base/Bytes.hpp"

#include <algorithm>
#include <cstring>

namespace base {

ByteView viewOf(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t *>(text.data()), text.size()};
}

Bytes bytesOf(std::string_view text) {
  const ByteView view = viewOf(text);
  return {view.begin(), view.end()};
}

std::string_view textOf(ByteView bytes) {
  return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

bool equal(ByteView left, ByteView right) {
  return std::ranges::equal(left, right);
}

void copy(ByteView from, std::uint8_t *to) {
  if (!from.empty()) {  // memcpy may not be given a null pointer
    std::memcpy(to, from.data(), from.size());
  }
}

}  // namespace base
