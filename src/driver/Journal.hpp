#pragma once

#include <chrono>
#include <map>
#include <mutex>
#include <string>

namespace driver {

// The driver's lines in the machine's log, each with the program and the process that it lives in.
// Nothing else of it is ever shown: what it wrote to standard output or error would spoil what the
// program says. For any thread; never blocks.
class Journal {
 public:
  // `line` says what failed, why, and what to do. The same line is sent again after 10 s at the
  // earliest.
  void report(const std::string &line);

 private:
  using Clock = std::chrono::steady_clock;

  [[nodiscard]] bool admit(const std::string &line);

  std::mutex mutex_;
  std::map<std::string, Clock::time_point> sent_;
};

}  // namespace driver
