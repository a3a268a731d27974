#pragma once

#include <span>
#include <string>

#include "ctl/Invocation.hpp"

namespace ctl {

// The tool kfyctl, for administrators of a machine with kfyd. The invocation must have a keychain.
// Returns the exit status.
[[nodiscard]] int runKfyctl(std::span<const std::string> arguments, Invocation &invocation);

}  // namespace ctl
