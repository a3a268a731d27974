#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "logging/LogPlatform.hpp"
#include "platform/Clock.hpp"

// The file logger. It appends time-stamped lines to the log file, replaces repeated messages by a
// count, and copies every accepted message to standard error.
class CVNUnifiedLogger {
 public:
  // Chooses the log file and makes its folder; a folder that can't be made is no error here.
  // Everything but tests uses sharedLogger().
  explicit CVNUnifiedLogger(logging::LogPlatform &platform);

  // The process's one logger, made at the first call. Null while logging is off.
  [[nodiscard]] static CVNUnifiedLogger *sharedLogger();

  // Hands a message to standard error and the log file. One of level 2 passes only in debug mode,
  // any other always. A message equal to the last one within 2.0 s of the last line written is only
  // counted. From any thread, one at a time.
  void logString(std::string_view message, std::int64_t level);

  // The system's own names; mapped under the root when the file is touched.
  std::string logFileURL;
  std::string lastLine;
  platform::Clock::Time lastLoggedDate;
  std::int64_t repeated = 0;

 private:
  void writeLines(std::string_view line);

  logging::LogPlatform &platform_;
};
