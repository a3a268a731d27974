#pragma once

#include "platform/ToolRunner.hpp"

namespace platform_linux {

// Starts each program in a process group of its own, with all signals unblocked and at their
// defaults and with this process's environment. What is ended past a limit is the whole group: a
// process that a program moves out of its group is not reached, but holds nobody up either.
class SpawnToolRunner : public platform::ToolRunner {
 public:
  [[nodiscard]] std::optional<Bytes> outputOf(const std::string &program,
                                              std::span<const std::string> arguments,
                                              const std::string &workingFolder,
                                              platform::RunLimits limits) override;
  [[nodiscard]] std::optional<int> statusOf(const std::string &program,
                                            std::span<const std::string> arguments,
                                            const SecretBytes &input,
                                            std::chrono::milliseconds time) override;
};

}  // namespace platform_linux
