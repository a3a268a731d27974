#pragma once

#include <deque>

#include "platform/ToolRunner.hpp"

namespace fakes {

// Answers from a list, the last answer again and again, and notes how it was called.
class FakeToolRunner : public platform::ToolRunner {
 public:
  struct Call {
    std::string program;
    std::vector<std::string> arguments;
    std::string workingFolder;
    platform::RunLimits limits;
  };

  std::optional<Bytes> outputOf(const std::string &program, std::span<const std::string> arguments,
                                const std::string &workingFolder,
                                platform::RunLimits limits) override {
    calls.push_back({program, {arguments.begin(), arguments.end()}, workingFolder, limits});
    const std::optional<std::string> answer = answers.empty() ? std::nullopt : answers.front();
    if (answers.size() > 1) {
      answers.pop_front();
    }
    return answer ? std::optional(base::bytesOf(*answer)) : std::nullopt;
  }

  std::optional<int> statusOf(const std::string &, std::span<const std::string>,
                              const SecretBytes &, std::chrono::milliseconds) override {
    return 0;
  }

  std::deque<std::optional<std::string>> answers;
  std::vector<Call> calls;
};

}  // namespace fakes
