#pragma once

#include <chrono>
#include <map>
#include <mutex>
#include <string>

namespace driver {

// Writes the driver's messages to the machine's log, each with the program's name and process ID.
// Standard output and error belong to the host program. Thread-safe; never blocks.
class Journal {
 public:
  // `line` says what failed, why, and what to do. A repeated line is dropped for 10 s.
  void report(const std::string &line);

 private:
  using Clock = std::chrono::steady_clock;

  [[nodiscard]] bool admit(const std::string &line);

  std::mutex mutex_;
  std::map<std::string, Clock::time_point> sent_;
};

}  // namespace driver
