#include "ctl/Kfyctl.hpp"

#include <CLI/CLI.hpp>

#include "ctl/CommandLine.hpp"
#include "ctl/Commands.hpp"

namespace ctl {

int runKfyctl(std::span<const std::string> arguments, Invocation &invocation) {
  CLI::App app("", "kfyctl");
  describe(app, "Sets up kfyd, looks after it and tries its card out.");
  addSetupCommand(app, invocation);
  addStatusCommand(app, invocation);
  addIdentityCommands(app, invocation);
  addPairCommand(app, invocation);
  addPasswordCommands(app, invocation);
  addDefaultsCommands(app, invocation);
  addDebugCommands(app, invocation);
  addCertificatesCommand(app, invocation);
  addSignCommand(app, invocation);
  addDecryptCommand(app, invocation);
  return runCommandLine(app, arguments, invocation);
}

}  // namespace ctl
