#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace system_tests {

// The longest that a test waits for anything that another program does.
inline constexpr std::chrono::seconds kLongestWait{20};

// Waits until `condition` holds, kLongestWait at most.
template <typename Condition>
[[nodiscard]] bool eventually(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + kLongestWait;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

// A program that this test started. What it writes to standard output and error goes to one file.
// Ended with the object, if it still runs.
class Process {
 public:
  // `program` is one of this project's, or an absolute path.
  Process(const std::string &program, const std::vector<std::string> &arguments,
          const std::string &outputPath);
  ~Process();
  Process(const Process &) = delete;
  Process &operator=(const Process &) = delete;

  [[nodiscard]] pid_t id() const { return id_; }

  // All that it has written so far.
  [[nodiscard]] std::string output() const;

  // Waits until it has written the text; false if it ends or time runs out before.
  [[nodiscard]] bool hasSaid(const std::string &text);

  [[nodiscard]] bool hasEnded();
  // Waits for its end: its exit status, or 128 and the signal that ended it. -1: it still runs.
  int waitForEnd();

  // Sends it a signal and waits for its end.
  int end(int signal);

 private:
  std::string outputPath_;
  pid_t id_ = -1;
  bool isRunning_ = false;
  int status_ = 0;
};

}  // namespace system_tests
