#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <span>
#include <string>

#include "base/Bytes.hpp"
#include "base/Secret.hpp"

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

  // Starts `program`, one of the machine's own (an absolute path that is not mapped), gives it
  // `input`, at most 4,096 bytes, on its standard input and returns its exit status. Nothing if it
  // could not be started, was ended by a signal or took longer than `time`. Blocks until it ends.
  // Standard output and error are this process's own.
  [[nodiscard]] virtual std::optional<int> statusOf(const std::string &program,
                                                    std::span<const std::string> arguments,
                                                    const SecretBytes &input,
                                                    std::chrono::milliseconds time) = 0;
};

}  // namespace platform
