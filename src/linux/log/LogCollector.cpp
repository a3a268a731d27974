#include "linux/log/LogCollector.hpp"

#include <chrono>
#include <utility>

namespace platform_linux {
namespace {

constexpr std::chrono::milliseconds kLastWait{200};

}  // namespace

LogCollector::LogCollector(platform::MainQueue &queue, const std::string &processName,
                           LogPaths paths, int standardError)
    : entries_(queue, mutex_, processName, std::move(paths)),
      text_(queue, mutex_, processName, standardError) {}

LogCollector::~LogCollector() {
  const std::lock_guard lock(mutex_);
  const auto deadline = std::chrono::steady_clock::now() + kLastWait;
  entries_.sendUntil(deadline);
  text_.sendUntil(deadline);
}

bool LogCollector::accepts() {
  return true;
}

void LogCollector::entry(std::string_view text) {
  const std::lock_guard lock(mutex_);
  entries_.add(text);
}

void LogCollector::write(std::string_view text) {
  const std::lock_guard lock(mutex_);
  text_.add(text);
}

void LogCollector::flush() {
  const std::lock_guard lock(mutex_);
  entries_.send();
  text_.send();
}

}  // namespace platform_linux
