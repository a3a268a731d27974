#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace bench {

// A process of this measurement, killed with the object and with this program.
class Child {
 public:
  // Forks; the child does `work` and ends.
  explicit Child(const std::function<void()> &work);
  ~Child();
  Child(const Child &) = delete;
  Child &operator=(const Child &) = delete;

  // What all its threads, or its first one, have used of the processors so far, in microseconds.
  [[nodiscard]] double processorTime() const;
  [[nodiscard]] double mainThreadTime() const;

  // Its resident memory, in KiB.
  [[nodiscard]] double residentKiB() const;

 private:
  pid_t id_;
};

// Becomes another program, whose output nobody sees; returns only if that fails.
void execute(std::vector<std::string> command);

// Takes what is sent to the journal's socket under the root and drops it. Without a journal the
// daemon would write a file, which costs another time than what it does on a real machine.
[[nodiscard]] Child runJournal();

}  // namespace bench
