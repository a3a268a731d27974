#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <cerrno>
#include <ostream>
#include <string>

#include "base/Descriptor.hpp"
#include "base/Error.hpp"
#include "base/Files.hpp"
#include "base/Root.hpp"
#include "ctl/CommandLine.hpp"
#include "ctl/Commands.hpp"
#include "ctl/Facts.hpp"
#include "ctl/StoredSettings.hpp"
#include "logging/DebugMode.hpp"

namespace ctl {
namespace {

std::string markerPath() {
  return base::rooted(logging::kDebugMarker);
}

bool isTurnedOnBySetting() {
  const auto value = storedSetting(settings::kDebugLogging.domain, settings::kDebugLogging.key);
  return value && platform::booleanOf(*value).value_or(false);
}

std::string logFolder() {
  const auto value = storedSetting(settings::kLogFolderPath.domain, settings::kLogFolderPath.key);
  const auto *const text = value ? std::get_if<std::string>(&*value) : nullptr;
  const std::string folder = text == nullptr ? "" : *text;
  return !folder.empty() && base::fileExists(base::rooted(folder)) ? folder : "/tmp/kfy";
}

// The folder is another system's home of root and seldom there.
bool makeMarker(Error *error) {
  const std::string path = markerPath();
  if (!base::makeFolders(path.substr(0, path.rfind('/')), 0700, error)) {
    return false;
  }
  const base::Descriptor marker(
      ::open(path.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!marker.isOpen()) {
    base::reportErrno(error, errno, "cannot make " + path);
  }
  return marker.isOpen();
}

Outcome turnOn(Invocation &invocation) {
  Error error;
  if (!makeMarker(&error)) {
    return failureFrom(error, "kfyctl debug on");
  }
  invocation.notes << "kfyctl: debug mode is on; frames and passwords will stand in " << logFolder()
                   << " until: kfyctl debug off\n";
  return std::nullopt;
}

Outcome turnOff(Invocation &invocation) {
  Error error;
  if (::unlink(markerPath().c_str()) != 0 && errno != ENOENT) {
    base::reportErrno(&error, errno, "cannot remove " + markerPath());
    return failureFrom(error, "kfyctl debug off");
  }
  if (isTurnedOnBySetting()) {
    return Failure{"debug mode is still on, by the setting debugLogging",
                   "kfyctl defaults delete debugLogging"};
  }
  invocation.notes << "kfyctl: debug mode is off; what was logged still stands in " << logFolder()
                   << "\n";
  return std::nullopt;
}

Outcome tell(Invocation &invocation) {
  const bool hasMarker = base::fileExists(markerPath());
  const bool isSet = isTurnedOnBySetting();
  const Facts facts{{"on", "debug mode", hasMarker || isSet},
                    {"marker", "marker " + markerPath(), hasMarker},
                    {"debugLogging", "setting debugLogging", isSet},
                    {"logFolder", "log folder", logFolder()}};
  invocation.output << (invocation.json ? jsonOf(facts) : textOf(facts));
  return std::nullopt;
}

struct DebugCommand {
  const char *name;
  const char *description;
  bool answers;
  Outcome (*run)(Invocation &);
};

constexpr DebugCommand kDebugCommands[] = {
    {"on", "log everything, frames and passwords included", false, turnOn},
    {"off", "log no more than usual", false, turnOff},
    {"status", "whether debug mode is on", true, tell},
};

}  // namespace

void addDebugCommands(CLI::App &app, Invocation &invocation) {
  CLI::App *const group = app.add_subcommand("debug", "debug mode of kfyd");
  group->require_subcommand(1);
  for (const DebugCommand &row : kDebugCommands) {
    CLI::App *const command = group->add_subcommand(row.name, row.description);
    if (row.answers) {
      addJSONOption(*command, invocation);
    }
    command->callback([&invocation, run = row.run] { invocation.outcome = run(invocation); });
  }
}

}  // namespace ctl
