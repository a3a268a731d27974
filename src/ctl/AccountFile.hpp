#pragma once

#include <string>

namespace ctl {

// True if the account file of this machine (of its root) has a user of exactly this name. The
// name-service switch is not asked: users from the network are none of this machine.
[[nodiscard]] bool accountFileHas(const std::string &user);

}  // namespace ctl
