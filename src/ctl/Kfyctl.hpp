#pragma once

#include <span>
#include <string>

#include "ctl/Session.hpp"

namespace ctl {

// The tool kfyctl, for administrators of a machine with kfyd. The session must have a keychain.
// Returns the exit status.
[[nodiscard]] int runKfyctl(std::span<const std::string> arguments, Session &session);

}  // namespace ctl
