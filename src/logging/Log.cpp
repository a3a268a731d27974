#include <atomic>
#include <mutex>
#include <optional>
#include <system_error>
#include <utility>

#include "base/Files.hpp"
#include "base/Root.hpp"
#include "logging/CVNLog.hpp"
#include "logging/CVNUnifiedLogger.hpp"
#include "logging/DebugMode.hpp"
#include "logging/LogPlatform.hpp"
#include "logging/LogQuota.hpp"
#include "logging/StandardErrorLines.hpp"
#include "logging/UnauthenticatedLines.hpp"
#include "settings/Settings.hpp"

namespace logging {
namespace {

// Whether debug mode is on.
enum class Answer : std::uint8_t { unknown, beingLookedUp, no, yes };

// The process-wide state of logging: the platform, the logger, and the debug mode.
struct Logging {
  std::recursive_mutex mutex;  // of all below
  // Checked before the mutex is locked: the driver's programs may fork at any moment, and a child
  // must not find the mutex locked for ever.
  std::atomic<bool> isOn = false;
  std::unique_ptr<LogPlatform> platform;
  std::unique_ptr<CVNUnifiedLogger> logger;
  bool inEvent = false;
  // In an event: what may have changed before it has been forgotten. While it is true, the next two
  // hold and are read without the mutex.
  std::atomic<bool> isUpToDate = false;
  // Counts on when logging starts over, so that no number comes twice.
  std::atomic<std::uint64_t> moment = 0;
  std::atomic<Answer> debugMode = Answer::unknown;  // as looked up in this moment, like the next
  std::optional<bool> redaction;
  bool isForUnauthenticated = false;  // what is written now
  LogQuota quota;                     // of these

  void forgetLookUps() {
    ++moment;
    debugMode = Answer::unknown;
    redaction.reset();
  }

  // To be called in an event, before what was looked up in an earlier one is used.
  void forgetWhatMayHaveChanged() {
    if (!isUpToDate && (!platform->mayHaveChanged || platform->mayHaveChanged())) {
      forgetLookUps();
    }
    isUpToDate = true;
  }
};

// Never destroyed: a line may be written while the process ends, after static objects have gone.
Logging &logging() {
  static auto &state = *new Logging;  // NOLINT: see above
  return state;
}

// Replaces the content of an entry if the setting hides it.
constexpr const char *kRedactedEntry = "kfy:<private>";

bool lookUpDebugMode(const LogPlatform &platform) {
  return base::fileExists(base::rooted(kDebugMarker)) ||
         settings::isOn(settings::kDebugLogging, platform.defaults);
}

// Whether entries of the unified log hide what they say.
bool isRedacted() {
  Logging &state = logging();
  if (!state.inEvent) {
    return settings::isOn(settings::kRedactUnifiedLog, state.platform->defaults);
  }
  state.forgetWhatMayHaveChanged();
  if (!state.redaction) {
    state.redaction = settings::isOn(settings::kRedactUnifiedLog, state.platform->defaults);
  }
  return *state.redaction;
}

std::uint64_t quotaBytesPerSecond() {
  return static_cast<std::uint64_t>(
      settings::valueOf(settings::kStrangerLogBytesPerSecond, logging().platform->defaults));
}

// True if a line may still be written, where lines are limited.
bool hasRoom() {
  Logging &state = logging();
  return !state.isForUnauthenticated ||
         state.quota.tryAcquire(quotaBytesPerSecond(), state.platform->clock.now());
}

void spend(std::size_t bytes) {
  if (logging().isForUnauthenticated) {
    logging().quota.spend(bytes);
  }
}

void sayWhatWasLeftOut() {
  Logging &state = logging();
  if (!state.platform || !state.quota.hasLeftOut()) {
    return;
  }
  const std::uint64_t most = quotaBytesPerSecond();
  if (const auto lines = state.quota.takeLeftOut(most, state.platform->clock.now())) {
    CVNLog("%lu lines about clients that have not authenticated left out (limit %s is %lu)", lines,
           settings::kStrangerLogBytesPerSecond.key, most);
  }
}

void writeToStandardError(const std::string &text) {
  spend(text.size());
  logging().platform->standardError.write(text);
}

// An entry of the unified log is one line.
std::string unifiedLogEntry(std::string_view message) {
  std::string entry = "kfy:";
  entry.reserve(entry.size() + message.size());
  for (;;) {
    const std::size_t end = message.find('\n');
    entry += message.substr(0, end);
    if (end == std::string_view::npos) {
      return entry;
    }
    entry += "\\n";
    message.remove_prefix(end + 1);
  }
}

}  // namespace

std::recursive_mutex &logMutex() {
  return logging().mutex;
}

void useLogPlatform(std::unique_ptr<LogPlatform> platform) {
  const std::lock_guard lock(logMutex());
  logging().logger.reset();
  logging().forgetLookUps();
  logging().inEvent = false;
  logging().isUpToDate = false;
  logging().isOn = platform != nullptr;
  logging().platform = std::move(platform);
}

LogPlatform *logPlatform() {
  if (!logging().isOn) {
    return nullptr;
  }
  const std::lock_guard lock(logMutex());
  return logging().platform.get();
}

void flushLogs() {
  if (LogPlatform *platform = logPlatform()) {
    const std::lock_guard lock(logMutex());
    platform->unifiedLog.flush();
    platform->standardError.flush();
  }
}

bool debugModeOn() {
  Logging &state = logging();
  const Answer known = state.isUpToDate ? state.debugMode.load() : Answer::unknown;
  if (known == Answer::yes || known == Answer::no) {
    return known == Answer::yes;
  }
  if (!state.isOn) {
    return false;
  }
  const std::lock_guard lock(state.mutex);
  if (!state.inEvent) {
    return lookUpDebugMode(*state.platform);
  }
  state.forgetWhatMayHaveChanged();
  if (state.debugMode == Answer::unknown) {
    // Set before the look-up, which may itself report a broken settings file through CVNLog.
    state.debugMode = Answer::beingLookedUp;
    state.debugMode = lookUpDebugMode(*state.platform) ? Answer::yes : Answer::no;
  }
  return state.debugMode == Answer::yes;
}

void eventBegins() {
  const std::lock_guard lock(logMutex());
  Logging &state = logging();
  state.inEvent = true;
  state.isUpToDate = false;
  if (state.debugMode == Answer::beingLookedUp) {  // memory ran out
    state.debugMode = Answer::unknown;
  }
  sayWhatWasLeftOut();
}

std::uint64_t currentMoment() {
  Logging &state = logging();
  if (state.isUpToDate) {
    return state.moment;
  }
  if (!state.isOn) {
    return 0;
  }
  const std::lock_guard lock(state.mutex);
  if (!state.inEvent) {
    return 0;
  }
  state.forgetWhatMayHaveChanged();
  return state.moment;
}

BlockingStep::BlockingStep() {
  flushLogs();
}

BlockingStep::~BlockingStep() {
  const std::lock_guard lock(logMutex());
  logging().forgetLookUps();
}

UnauthenticatedLines::UnauthenticatedLines(bool isUnauthenticated)
    : before_(std::exchange(logging().isForUnauthenticated, isUnauthenticated)) {}

UnauthenticatedLines::~UnauthenticatedLines() {
  logging().isForUnauthenticated = before_;
}

void writeLog(std::int64_t level, std::string_view format, std::span<const LogArgument> arguments) {
  LogPlatform *platform = logPlatform();
  if (platform == nullptr) {
    return;
  }
  const std::lock_guard lock(logMutex());
  if (!hasRoom()) {
    return;
  }
  CVNUnifiedLogger *logger = CVNUnifiedLogger::sharedLogger();
  // The file takes messages of any length, but the unified log cuts them. A message for the unified
  // log alone is not formatted in full: a frame of 2 MiB would become 4 MiB of text, of which 64
  // KiB are kept.
  const bool isForFile = level != kLogLevel || debugModeOn();
  const std::string message =
      formatted(format, arguments, isForFile ? kWholeText : platform::kLongestEntry + 1);
  spend(message.size());
  if (platform->unifiedLog.accepts()) {
    platform->unifiedLog.entry(isRedacted() ? kRedactedEntry : unifiedLogEntry(message));
  }
  if (isForFile) {
    logger->logString(message, level);
  }
}

void logToFileAlone(std::string_view message) {
  if (CVNUnifiedLogger *logger = CVNUnifiedLogger::sharedLogger()) {
    logger->logString(message, kLogLevel);
  }
}

void writeStandardError(std::string_view format, std::span<const LogArgument> arguments) {
  if (logPlatform() == nullptr) {
    return;
  }
  const std::lock_guard lock(logMutex());
  if (hasRoom()) {
    writeToStandardError(formatted(format, arguments));
  }
}

void writeWarning(int errorNumber, std::string_view format,
                  std::span<const LogArgument> arguments) {
  const LogPlatform *platform = logPlatform();
  if (platform == nullptr) {
    return;
  }
  const std::lock_guard lock(logMutex());
  if (hasRoom()) {
    writeToStandardError(platform->processName + ": " + formatted(format, arguments) + ": " +
                         std::generic_category().message(errorNumber) + "\n");
  }
}

}  // namespace logging

CVNUnifiedLogger *CVNUnifiedLogger::sharedLogger() {
  logging::Logging &state = logging::logging();
  if (!state.isOn) {
    return nullptr;
  }
  const std::lock_guard lock(state.mutex);
  if (!state.logger && state.platform) {
    state.logger = std::make_unique<CVNUnifiedLogger>(*state.platform);
  }
  return state.logger.get();
}
