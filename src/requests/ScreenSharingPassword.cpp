#include "requests/ScreenSharingPassword.hpp"

namespace requests {

// Accounts are not looked up yet: the answer is that of a machine without the account.
void handleCreateUser(Request &request) {
  request.reply.errorMessage = "The screen sharing user does not exist";
  refuse(request);
}

}  // namespace requests
