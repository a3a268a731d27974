#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "fakes/FakeClock.hpp"
#include "fakes/FakeUserDefaults.hpp"
#include "support/LogPlatform.hpp"

namespace fakes {

// Takes what is logged.
class FakeLog : public platform::UnifiedLog, public platform::StandardError {
 public:
  [[nodiscard]] bool accepts() override { return true; }
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
  ~LoggedTest() override { support::useLogPlatform(nullptr); }

  // A fresh logger, as after a start of the process.
  void startLogging(uid_t realUserID = 0, std::optional<std::string> bundleLogFileName = {}) {
    support::useLogPlatform(std::make_unique<support::LogPlatform>(support::LogPlatform{
        clock, defaults, log, log, "kfyd", realUserID, std::move(bundleLogFileName)}));
  }

  void setDebugMode(bool on) { defaults.values["kfyd/debugLogging"] = on; }

  // What the unified log holds since the last call, traces included if debug mode is on.
  std::vector<std::string> takeEntries() { return std::exchange(log.entries, {}); }

  FakeClock clock;
  FakeUserDefaults defaults;
  FakeLog log;
};

}  // namespace fakes
