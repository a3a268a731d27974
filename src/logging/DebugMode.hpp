#pragma once

#include <cstdint>
#include <string_view>

namespace logging {

// A file here turns debug mode on; only its existence counts.
inline constexpr std::string_view kDebugMarker = "/var/root/.kfydebug";

// True while the debug marker exists or the user default `debugLogging` is true; false in a program
// that has not turned logging on. Within one moment both are looked up once.
[[nodiscard]] bool debugModeOn();

// To be called before each event of the main queue: what has changed before it counts in it.
void eventBegins();

// The number of the present moment: what was looked up under a number still holds while the number
// is the same. A moment lasts until something may have changed (LogPlatform::mayHaveChanged), and
// ends with each step that blocks an event. 0 outside of events: there nothing holds.
[[nodiscard]] std::uint64_t currentMoment();

// Stands around a step that blocks the main queue. Before the step, collected log entries leave,
// since no timer fires while it blocks; after it, settings are looked up anew, since they may have
// changed meanwhile.
class BlockingStep {
 public:
  BlockingStep();
  ~BlockingStep();
  BlockingStep(const BlockingStep &) = delete;
  BlockingStep &operator=(const BlockingStep &) = delete;
};

}  // namespace logging
