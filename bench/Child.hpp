#pragma once

#include <sys/types.h>

#include <functional>

namespace bench {

// A process of this measurement, killed with the object and with this program.
class Child {
 public:
  // Forks; the child does `work` and ends.
  explicit Child(const std::function<void()> &work);
  ~Child();
  Child(const Child &) = delete;
  Child &operator=(const Child &) = delete;

  // What it has used of the processors so far, in microseconds.
  [[nodiscard]] double processorTime() const;

 private:
  pid_t id_;
};

// Becomes another program; returns only if that fails.
void execute(const char *program);

// Takes what is sent to the journal's socket under the root and drops it. Without a journal the
// daemon would write a file, which costs another time than what it does on a real machine.
[[nodiscard]] Child runJournal();

}  // namespace bench
