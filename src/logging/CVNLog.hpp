#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include "logging/DebugMode.hpp"
#include "logging/LogFormat.hpp"

namespace logging {

// The levels that the front ends give to the file logger.
inline constexpr std::int64_t kTraceLevel = 1;
inline constexpr std::int64_t kLogLevel = 2;

// Formats, writes the unified-log entry and hands the text to the file logger.
void writeLog(std::int64_t level, std::string_view format, std::span<const LogArgument> arguments);

// Hands a text to the file logger alone, at level 2: it never reaches the unified log.
void logToFileAlone(std::string_view message);

}  // namespace logging

// For errors and notable events: always to the unified log, in debug mode also to standard error
// and the log file. Silent in a program that has not turned logging on.
template <logging::Loggable... Args>
void CVNLog(logging::LogFormat<std::type_identity_t<Args>...> format, const Args &...arguments) {
  const std::array<logging::LogArgument, sizeof...(Args)> held{logging::LogArgument(arguments)...};
  logging::writeLog(logging::kLogLevel, format.text(), held);
}

// For tracing: nothing at all unless debug mode is on. Takes things, not their texts, so that a
// disabled trace formats nothing.
template <logging::Loggable... Args>
void CVNLogDebug(logging::LogFormat<std::type_identity_t<Args>...> format,
                 const Args &...arguments) {
  if (!logging::debugModeOn()) {
    return;
  }
  const std::array<logging::LogArgument, sizeof...(Args)> held{logging::LogArgument(arguments)...};
  logging::writeLog(logging::kTraceLevel, format.text(), held);
}
