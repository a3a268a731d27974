#pragma once

#include "ctl/CommandLine.hpp"
#include "ctl/Invocation.hpp"

namespace ctl {

// Each adds one group of commands to kfyctl. A command that was chosen leaves its outcome in the
// invocation, which outlives the parser.
void addSetupCommand(CLI::App &app, Invocation &invocation);
void addIdentityCommands(CLI::App &app, Invocation &invocation);
void addPairCommand(CLI::App &app, Invocation &invocation);
void addPasswordCommands(CLI::App &app, Invocation &invocation);
void addDefaultsCommands(CLI::App &app, Invocation &invocation);
void addDebugCommands(CLI::App &app, Invocation &invocation);
void addCertificatesCommand(CLI::App &app, Invocation &invocation);
void addSignCommand(CLI::App &app, Invocation &invocation);
void addDecryptCommand(CLI::App &app, Invocation &invocation);
void addStatusCommand(CLI::App &app, Invocation &invocation);

}  // namespace ctl
