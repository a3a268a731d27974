#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <span>
#include <string>

#include "base/Bytes.hpp"

namespace platform {

// What one run of a program may take. Past either the program, and all that it started, is ended.
struct RunLimits {
  std::chrono::milliseconds time;
  std::size_t outputBytes;
};

// Runs other programs.
class ToolRunner {
 public:
  virtual ~ToolRunner() = default;

  // Starts `program` (an absolute path, mapped under the root like `workingFolder`) with
  // `arguments` and returns all that it wrote to its standard output, however it ended. Nothing if
  // it could not be started or went past a limit. Blocks until the program closes its output and
  // ends. Standard input and error are this process's own; no other descriptor reaches the program.
  [[nodiscard]] virtual std::optional<Bytes> outputOf(const std::string &program,
                                                      std::span<const std::string> arguments,
                                                      const std::string &workingFolder,
                                                      RunLimits limits) = 0;
};

}  // namespace platform
