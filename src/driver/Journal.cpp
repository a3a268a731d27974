#include "driver/Journal.hpp"

#include <unistd.h>

#include <cerrno>

#include "base/DisplayText.hpp"
#include "linux/log/EntrySink.hpp"

namespace driver {
namespace {

constexpr std::chrono::seconds kRepeatInterval{10};
constexpr std::size_t kMaxRemembered = 64;

}  // namespace

bool Journal::admit(const std::string &line) {
  const std::lock_guard lock(mutex_);
  const Clock::time_point now = Clock::now();
  const auto found = sent_.find(line);
  if (found != sent_.end() && now - found->second < kRepeatInterval) {
    return false;
  }
  if (sent_.size() >= kMaxRemembered) {
    sent_.clear();
  }
  sent_.insert_or_assign(line, now);
  return true;
}

void Journal::report(const std::string &line) {
  if (!admit(line)) {
    return;
  }
  const std::string entry =
      base::displayText("kfy-pkcs11 in " + std::string(program_invocation_short_name) +
                        " (process " + std::to_string(::getpid()) + "): " + line);
  // A new sink for each line: if a program closed all descriptors, a kept one could refer to
  // another socket.
  static_cast<void>(platform_linux::EntrySink("kfy-pkcs11").send({&entry, 1}));
}

}  // namespace driver
