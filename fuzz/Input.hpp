#pragma once

#include <algorithm>

#include "base/Bytes.hpp"

// The bytes of an input, one after the other; zeros once they are used up.
class Input {
 public:
  explicit Input(ByteView bytes) : rest_(bytes) {}

  [[nodiscard]] bool isAtEnd() const { return rest_.empty(); }
  ByteView take(std::size_t most) {
    const ByteView taken = rest_.first(std::min(most, rest_.size()));
    rest_ = rest_.subspan(taken.size());
    return taken;
  }
  std::uint8_t byte() { return isAtEnd() ? 0 : take(1)[0]; }
  std::size_t below(std::size_t count) { return byte() % count; }
  const auto &oneOf(const auto &rows) { return rows[below(std::size(rows))]; }

 private:
  ByteView rest_;
};
