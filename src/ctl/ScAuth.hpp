#pragma once

#include <span>
#include <string>

#include "ctl/Invocation.hpp"

namespace ctl {

// The tool sc_auth: which key stands for which user of this machine. It never talks to the daemon,
// whose queue waits for it. Returns the exit status.
[[nodiscard]] int runScAuth(std::span<const std::string> arguments, Invocation &invocation);

}  // namespace ctl
