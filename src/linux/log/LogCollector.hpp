#pragma once

#include <unistd.h>

#include <mutex>
#include <string>

#include "linux/log/EntryQueue.hpp"
#include "linux/log/TextQueue.hpp"
#include "platform/StandardError.hpp"
#include "platform/UnifiedLog.hpp"

namespace platform_linux {

// Collects what goes to the machine's log and to standard error, and passes it on together: at most
// 10 ms later, with flush(), or at its end, for which it takes 200 ms at most. See EntryQueue and
// TextQueue for what happens when nobody takes it. The process has to ignore SIGPIPE. Takes calls
// from any thread.
class LogCollector : public platform::UnifiedLog, public platform::StandardError {
 public:
  // The queue is borrowed; it need not run yet. `processName` is the name under which entries
  // appear.
  LogCollector(platform::MainQueue &queue, const std::string &processName, LogPaths paths = {},
               int standardError = STDERR_FILENO);
  ~LogCollector() override;
  LogCollector(const LogCollector &) = delete;
  LogCollector &operator=(const LogCollector &) = delete;

  // Always true: a log that is not there now may be there when the entries leave.
  [[nodiscard]] bool accepts() override;
  void entry(std::string_view text) override;
  void write(std::string_view text) override;
  // Both: the log and standard error.
  void flush() override;

 private:
  std::mutex mutex_;
  EntryQueue entries_;
  TextQueue text_;
};

}  // namespace platform_linux
