#pragma once

#include <gmock/gmock.h>

#include "fakes/FakeClock.hpp"
#include "fakes/FakeUserDefaults.hpp"
#include "fakes/Transcript.hpp"
#include "logging/LogPlatform.hpp"

namespace fakes {

// Takes what is logged.
class FakeLog : public platform::UnifiedLog, public platform::StandardError {
 public:
  bool accepts() override { return true; }
  void entry(std::string_view text) override { entries.emplace_back(text); }
  void write(std::string_view text) override { standardError += text; }
  void flush() override { ++flushes; }

  std::vector<std::string> entries;  // of the unified log
  std::string standardError;
  int flushes = 0;
};

// A test in which logging is on, on fakes. Runs in a sandboxed root.
class LoggedTest : public testing::Test {
 public:
  LoggedTest() { startLogging(); }
  ~LoggedTest() override { logging::useLogPlatform(nullptr); }

  // A fresh logger, as after a start of the process.
  void startLogging(uid_t realUserID = 0, std::optional<std::string> bundleLogFileName = {}) {
    logging::useLogPlatform(std::make_unique<logging::LogPlatform>(logging::LogPlatform{
        clock, defaults, log, log, "kfyd", realUserID, std::move(bundleLogFileName)}));
  }

  void setDebugMode(bool on) { defaults.values["kfyd/debugLogging"] = on; }

  // What the unified log holds since the last call, traces included if debug mode is on.
  std::vector<std::string> takeEntries() { return std::exchange(log.entries, {}); }

  // The same and, below, what else stands on standard error, where debug mode repeats the entries.
  std::vector<std::string> takeLogLines() {
    std::string errors = std::exchange(log.standardError, "");
    auto lines = takeEntries();
    for (const std::string &entry : lines) {
      const std::string text = replacedAll(entry.substr(4), "\\n", "\n") + "\n";
      const std::size_t place = errors.find(text);
      errors.erase(std::min(place, errors.size()), place < errors.size() ? text.size() : 0);
    }
    std::istringstream rest(errors);
    for (std::string line; std::getline(rest, line);) {
      lines.push_back(line);
    }
    return lines;
  }

  FakeClock clock;
  FakeUserDefaults defaults;
  FakeLog log;
};

}  // namespace fakes
