#pragma once

#include "protocol/QuillMessage.hpp"

namespace fakes {

// A message of this command and type with every field that there is: when it is written, those that
// it does not have are left out.
inline QuillMessage fullMessage(std::int64_t command, std::int64_t type) {
  QuillMessage message;
  message.command = command;
  message.messageType = type;
  message.messageID = UUID::fromText("0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0");
  message.certificateArray = {{Bytes{1}}};
  message.challenge = message.challengeSignature = message.dataToSign = Bytes{1};
  message.signingCertificateHash = message.dataToDecrypt = message.objectID = Bytes{1};
  message.signedData = message.certificateUsedToAuthenticate = Bytes{1};
  message.selectedCertificateHash = Bytes{1};
  message.decryptedData = SecretBytes(Bytes{1});
  message.certificates = protocol::makeCardList({});
  message.ephemeralUsername = message.errorMessage = "x";
  message.ephemeralPassword = message.PIN = SecretText("x");
  return message;
}

}  // namespace fakes
