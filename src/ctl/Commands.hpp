#pragma once

#include "ctl/CommandLine.hpp"
#include "ctl/Session.hpp"

namespace ctl {

// Each adds one group of commands to kfyctl. A command that was chosen leaves its outcome in the
// session, which outlives the parser.
void addIdentityCommands(CLI::App &app, Session &session);
void addPasswordCommands(CLI::App &app, Session &session);
void addDefaultsCommands(CLI::App &app, Session &session);
void addDebugCommands(CLI::App &app, Session &session);
void addCertificatesCommand(CLI::App &app, Session &session);
void addSignCommand(CLI::App &app, Session &session);
void addDecryptCommand(CLI::App &app, Session &session);
void addStatusCommand(CLI::App &app, Session &session);

}  // namespace ctl
