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

// Adds --help and --version and requires one command at every level.
void describe(CLI::App &app, const std::string &description);

// Adds --json to a command.
void addJSONOption(CLI::App &command, Invocation &invocation);

// Parses the arguments, runs the chosen command, reports its failure, and returns the exit status.
[[nodiscard]] int runCommandLine(CLI::App &app, std::span<const std::string> arguments,
                                 Invocation &invocation);

}  // namespace ctl
