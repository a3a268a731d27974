#include "remote/OutageReporter.hpp"

#include <utility>

namespace remote {
namespace {

using std::chrono::duration_cast;

constexpr std::chrono::hours kBetweenLines(1);

}  // namespace

void OutageReporter::noteFailure(const std::string &reason, Time now) {
  if (!since_) {
    console_.complain(machine_ + ": " + reason + "; trying again every few seconds");
    since_ = saidAt_ = now;
  } else if (now - saidAt_ >= kBetweenLines) {
    console_.complain(machine_ + " has been away for " +
                      std::to_string(duration_cast<std::chrono::hours>(now - *since_).count()) +
                      " h: " + reason);
    saidAt_ = now;
  }
}

std::optional<std::chrono::seconds> OutageReporter::end(Time now) {
  const auto since = std::exchange(since_, std::nullopt);
  return since ? std::optional(std::chrono::ceil<std::chrono::seconds>(now - *since))
               : std::nullopt;
}

}  // namespace remote
