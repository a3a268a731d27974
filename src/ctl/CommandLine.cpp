#include "ctl/CommandLine.hpp"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <iostream>

#include "base/DisplayText.hpp"
#include "base/Version.hpp"
#include "ctl/Facts.hpp"

namespace ctl {
namespace {

// The names of the commands parsed so far: "kfyctl identity use".
std::string spelledCommand(const CLI::App &app) {
  const auto chosen = app.get_subcommands();
  return chosen.empty() ? app.get_name() : app.get_name() + " " + spelledCommand(*chosen.front());
}

// The parser's messages are full sentences; ours have no capital and no full stop.
std::string loweredFirst(std::string text) {
  if (text.size() > 1 && std::isupper(static_cast<unsigned char>(text[1])) == 0) {
    text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
  }
  return text;
}

// An unknown word is reported first, even if the parser reports a missing command.
std::string whatIsWrong(const CLI::App &app, const CLI::ParseError &error) {
  const std::vector<std::string> unknown = app.remaining(/*recurse=*/true);
  return unknown.empty() ? loweredFirst(error.what())
                         : "\"" + unknown.front() + "\" is not known here";
}

void say(const std::string &program, const Failure &failure, Invocation &invocation) {
  if (invocation.json) {
    invocation.notes << jsonOf({{"error", "error", failure.what}, {"try", "try", failure.next}});
    return;
  }
  invocation.notes << program << ": error: " << base::displayText(failure.what) << '\n';
  if (!failure.next.empty()) {
    invocation.notes << program << ": try: " << base::displayText(failure.next) << '\n';
  }
}

}  // namespace

std::vector<std::string> argumentsOf(int count, char **values) {
  return {values + std::min(count, 1), values + count};
}

Invocation sessionOnStandardStreams() {
  return {std::cin, std::cout, std::cerr, ::isatty(STDIN_FILENO) == 1,
          ::isatty(STDOUT_FILENO) == 1};
}

void describe(CLI::App &app, const std::string &description) {
  app.description(description);
  app.set_version_flag("--version", app.get_name() + " " + base::kVersion);
  app.require_subcommand(1);
  app.fallthrough();  // --version is known behind every command
  app.get_formatter()->column_width(36);
}

void addJSONOption(CLI::App &command, Invocation &invocation) {
  command.add_flag("--json", invocation.json, "write the result as JSON");
}

int runCommandLine(CLI::App &app, std::span<const std::string> arguments, Invocation &invocation) {
  try {
    app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
  } catch (const CLI::ParseError &error) {
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
      return app.exit(error, invocation.output, invocation.notes);
    }
    invocation.outcome =
        Failure{whatIsWrong(app, error), spelledCommand(app) + " --help", exitWrongCommandLine};
  }
  invocation.output.flush();
  if (!invocation.outcome && !invocation.output) {
    invocation.outcome = Failure{"the result cannot be written to standard output", ""};
  }
  if (!invocation.outcome) {
    return exitDone;
  }
  say(app.get_name(), *invocation.outcome, invocation);
  return invocation.outcome->status;
}

}  // namespace ctl
