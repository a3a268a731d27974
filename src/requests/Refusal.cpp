#include <memory>
#include <vector>

#include "requests/Request.hpp"
#include "requests/ScreenSharingPassword.hpp"

namespace requests {

QuillMessage::Certificates noCertificates() {
  return std::make_shared<const protocol::CardList>(std::vector<protocol::CardEntry>{});
}

void refuse(Request &request) {
  request.reply.status = false;
  ++request.processor.counts.refused;
  switch (request.message.command) {
    case QuillCommandSignData:
      request.reply.signedData = Bytes{};
      break;
    case QuillCommandDecryptData:
      request.reply.decryptedData = SecretBytes{};
      break;
    case QuillCommandGetCertificates:
      request.reply.certificates = noCertificates();
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
