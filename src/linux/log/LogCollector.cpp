#include "linux/log/LogCollector.hpp"

#include <chrono>
#include <utility>

namespace platform_linux {
namespace {

constexpr std::chrono::milliseconds kLastWait{200};

}  // namespace

LogCollector::LogCollector(platform::MainQueue &queue, const std::string &processName,
                           LogPaths paths, int standardError)
    : entries_(queue, processName, std::move(paths)), text_(queue, processName, standardError) {}

LogCollector::~LogCollector() {
  const auto deadline = std::chrono::steady_clock::now() + kLastWait;
  entries_.sendUntil(deadline);
  text_.sendUntil(deadline);
}

bool LogCollector::accepts() {
  return true;
}

void LogCollector::entry(std::string_view text) {
  entries_.add(text);
}

void LogCollector::write(std::string_view text) {
  text_.add(text);
}

void LogCollector::flush() {
  entries_.send();
  text_.send();
}

}  // namespace platform_linux
