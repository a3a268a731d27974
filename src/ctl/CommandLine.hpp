#pragma once

#include <span>
#include <string>
#include <vector>

#include "ctl/Invocation.hpp"

namespace CLI {  // NOLINT(readability-identifier-naming): the parser library's own name
class App;
}

namespace ctl {

// The arguments of main, without the program's name.
[[nodiscard]] std::vector<std::string> argumentsOf(int count, char **values);

// An invocation on the process's standard streams.
[[nodiscard]] Invocation sessionOnStandardStreams();

// Gives the tool --help and --version and one command that must be named, in whatever depth.
void describe(CLI::App &app, const std::string &description);

// Adds --json to a command.
void addJSONOption(CLI::App &command, Invocation &invocation);

// Parses the arguments, which runs the chosen command, says what it failed with, and returns the
// tool's exit status.
[[nodiscard]] int runCommandLine(CLI::App &app, std::span<const std::string> arguments,
                                 Invocation &invocation);

}  // namespace ctl
