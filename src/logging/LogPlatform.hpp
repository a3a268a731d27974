#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/Clock.hpp"
#include "platform/StandardError.hpp"
#include "platform/UnifiedLog.hpp"
#include "platform/UserDefaults.hpp"

namespace logging {

// What the log front ends need of the platform. The references must live as long as anything logs.
// The front ends use it from one thread at a time.
struct LogPlatform {
  platform::Clock &clock;
  platform::UserDefaults &defaults;
  platform::UnifiedLog &unifiedLog;
  platform::StandardError &standardError;
  std::string processName;  // the executable's file name
  uid_t realUserID;
  std::optional<std::string> bundleLogFileName;  // a log file name from bundle information
  // Whether the debug marker or a setting may have changed since the last call; nothing: always.
  // Asked once in each event that looks something up.
  std::function<bool()> mayHaveChanged = nullptr;
};

// Turns logging on: from now on the front ends use this platform. Called once by a daemon's main
// before its first line; in a program that never calls it the front ends are silent, write no file
// and look nothing up. A later call starts over with a fresh logger; null turns logging off (for
// tests).
void useLogPlatform(std::unique_ptr<LogPlatform> platform);

// Held while anything is logged: the front ends may be called from any thread, one at a time gets
// through. Whoever holds it may log.
[[nodiscard]] std::recursive_mutex &logMutex();

// The platform in use; null while logging is off.
[[nodiscard]] LogPlatform *logPlatform();

// Sends the log entries and standard-error text that still wait. For a process that is about to
// end.
void flushLogs();

}  // namespace logging
