#pragma once

#include <string_view>

namespace platform {

// The process's standard error. Never blocks and keeps order: a reader that stands still stops
// nothing.
class StandardError {
 public:
  virtual ~StandardError() = default;

  // Takes text that is to appear as it stands, line feeds included. It may leave later (see flush);
  // text that has to be dropped is counted, and the count is said as soon as text passes again.
  virtual void write(std::string_view text) = 0;

  // Writes what still waits, as far as that is possible without blocking. To be called before any
  // step that blocks the thread and before the process ends by itself.
  virtual void flush() = 0;
};

}  // namespace platform
