#pragma once

#include <string_view>

namespace platform {

// The process's standard error. It keeps order and never blocks, even if the reader has stopped.
class StandardError {
 public:
  virtual ~StandardError() = default;

  // Writes text unchanged, line feeds included, now or later (see flush). Dropped text is counted,
  // and the count is written as soon as text passes again.
  virtual void write(std::string_view text) = 0;

  // Writes waiting text as far as possible without blocking. To be called before any step that
  // blocks the thread and before the process exits.
  virtual void flush() = 0;
};

}  // namespace platform
