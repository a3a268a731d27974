#pragma once

#include <span>
#include <string>

#include "ctl/Invocation.hpp"

namespace ctl {

// The tool sc_auth, which manages the pairings of keys with users. It never talks to the daemon,
// which is blocked while it waits for this tool. Returns the exit status.
[[nodiscard]] int runScAuth(std::span<const std::string> arguments, Invocation &invocation);

}  // namespace ctl
