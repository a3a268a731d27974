#pragma once

#include <array>
#include <span>
#include <string_view>
#include <type_traits>

#include "logging/LogFormat.hpp"

namespace logging {

// The untyped halves of the two functions below.
void writeStandardError(std::string_view format, std::span<const LogArgument> arguments);
void writeWarning(int errorNumber, std::string_view format, std::span<const LogArgument> arguments);

// Prints to standard error, debug mode or not. Silent in a program that has not turned logging on.
template <Loggable... Args>
void printToStandardError(LogFormat<std::type_identity_t<Args>...> format,
                          const Args &...arguments) {
  const std::array<LogArgument, sizeof...(Args)> held{LogArgument(arguments)...};
  writeStandardError(format.text(), held);
}

// The same in the form of the C library's warn: the program's name, the text, the text of
// `errorNumber`.
template <Loggable... Args>
void warn(int errorNumber, LogFormat<std::type_identity_t<Args>...> format,
          const Args &...arguments) {
  const std::array<LogArgument, sizeof...(Args)> held{LogArgument(arguments)...};
  writeWarning(errorNumber, format.text(), held);
}

}  // namespace logging
