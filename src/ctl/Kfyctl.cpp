#include "ctl/Kfyctl.hpp"

#include <CLI/CLI.hpp>

#include "ctl/CommandLine.hpp"
#include "ctl/Commands.hpp"

namespace ctl {

int runKfyctl(std::span<const std::string> arguments, Session &session) {
  CLI::App app("", "kfyctl");
  describe(app, "Sets up kfyd, looks after it and tries its card out.");
  addStatusCommand(app, session);
  addIdentityCommands(app, session);
  addPasswordCommands(app, session);
  addDefaultsCommands(app, session);
  addDebugCommands(app, session);
  addCertificatesCommand(app, session);
  addSignCommand(app, session);
  addDecryptCommand(app, session);
  return runCommandLine(app, arguments, session);
}

}  // namespace ctl
