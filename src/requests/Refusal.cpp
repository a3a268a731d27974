#include "requests/Request.hpp"
#include "requests/ScreenSharingPassword.hpp"

namespace requests {

void refuse(Request &request) {
  request.reply.status = false;
  switch (request.message.command) {
    case QuillCommandSignData:
      request.reply.signedData = Bytes{};
      break;
    case QuillCommandDecryptData:
      request.reply.decryptedData = SecretBytes{};
      break;
    case QuillCommandCreateEmphemeralUser:
      request.reply.ephemeralUsername = kScreenSharingAccount;
      request.reply.ephemeralPassword = SecretText{};
      break;
    default:
      break;
  }
  request.worker->sendMessage(request.reply);
}

}  // namespace requests
