#pragma once

#include "requests/Request.hpp"

namespace requests {

// The short name of the local account whose password a remote client may ask for.
inline constexpr const char *kScreenSharingAccount = "cvnkfyvncuser";

// `create_user`: gives the screen-sharing account a fresh password and sends it back. Blocks while
// the account is looked up and its password set.
void handleCreateUser(Request &request);

// Every answer says which account it is about.
void nameScreenSharingAccount(QuillMessage &reply);

}  // namespace requests
