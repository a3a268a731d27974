#pragma once

#include "requests/Request.hpp"

namespace requests {

// The short name of the local account whose password a remote client may ask for.
inline constexpr const char *kScreenSharingAccount = "cvnkfyvncuser";

void handleCreateUser(Request &request);

}  // namespace requests
