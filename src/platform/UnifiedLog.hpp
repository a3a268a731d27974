#pragma once

#include <cstddef>
#include <string_view>

namespace platform {

// The bytes at which an entry is cut.
inline constexpr std::size_t kLongestEntry = std::size_t{64} * 1024;

// The machine's own log. Never blocks and keeps the order of its entries.
class UnifiedLog {
 public:
  virtual ~UnifiedLog() = default;

  // True if an entry would be taken at all. Asked before an entry is made.
  [[nodiscard]] virtual bool accepts() = 0;

  // Takes one entry of UTF-8 text without line feeds, of which kLongestEntry bytes count, cut
  // between two characters. It may leave later (see flush); one that has
  // to be dropped is counted, and the count is said in an entry of its own as soon as entries pass
  // again.
  virtual void entry(std::string_view text) = 0;

  // Sends what still waits, as far as that is possible without blocking. To be called before any
  // step that blocks the thread and before the process ends by itself.
  virtual void flush() = 0;
};

}  // namespace platform
