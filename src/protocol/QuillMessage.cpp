#include "protocol/QuillMessage.hpp"

#include <utility>

#include "encodings/HexString.hpp"
#include "logging/CVNLog.hpp"
#include "logging/LogFormat.hpp"

namespace {

QuillMessage request(QuillCommand command) {
  QuillMessage message;
  message.messageType = QuillMessageTypeRequest;
  message.command = command;
  message.messageID = UUID::random();
  return message;
}

QuillMessage response(std::int64_t command, bool status, std::optional<UUID> messageID) {
  QuillMessage message;
  message.messageType = QuillMessageTypeResponse;
  message.command = command;
  message.status = status;
  message.messageID = messageID;
  return message;
}

struct ElementText {
  std::string operator()(const Bytes &bytes) const { return encodings::hexString(bytes); }
  std::string operator()(const std::string &text) const { return text; }
  std::string operator()(const encodings::OtherValue &other) const { return other.json; }
};

std::string textOf(const QuillMessage::CertificateArray &array, std::size_t most) {
  std::string text = "(";
  for (const encodings::ArrayElement &element : array) {
    if (text.size() > most) {
      break;
    }
    text += (text.size() > 1 ? ", " : "") + std::visit(ElementText{}, element);
  }
  return text + ")";
}

// Collects the lines of a description. One longer than `most` bytes may be cut after `most` bytes.
class Description {
 public:
  explicit Description(std::size_t most) : most_(most) {}

  void line(const char *name, const std::string &value) {
    if (text_.size() < most_) {
      text_.append(name).append(": ").append(value).append("\n");
    }
  }
  void hex(const char *name, const std::optional<Bytes> &bytes) {
    if (bytes) {
      line(name, logText(encodings::Hex{*bytes}, most_));
    }
  }
  void optional(const char *name, const std::optional<std::string> &value) {
    if (value) {
      line(name, *value);
    }
  }
  // For a secret or a payload: says only that it is set.
  void set(const char *name, bool isSet) {
    if (isSet) {
      line(name, "<Set>");
    }
  }
  [[nodiscard]] std::string text() && { return std::move(text_); }

 private:
  std::size_t most_;
  std::string text_;
};

}  // namespace

std::string logText(const QuillMessage &message, std::size_t most) {
  Description lines(most);
  lines.line("Status", message.status ? "YES" : "NO");
  // "Mesage" is the text that log watchers know.
  lines.line("Mesage Type", std::to_string(message.messageType));
  lines.line("Command", std::to_string(message.command));
  if (message.certificateArray) {
    lines.line("Certificate Array", textOf(*message.certificateArray, most));
  }
  lines.set("Challenge", message.challenge.has_value());
  lines.set("challengeSignature", message.challengeSignature.has_value());
  if (message.certificates) {
    lines.line("certificates", logText(*message.certificates, most));
  }
  lines.optional("ephemeralUsername", message.ephemeralUsername);
  lines.set("ephemeralPassword", message.ephemeralPassword.has_value());
  lines.optional("error message", message.errorMessage);
  lines.set("dataToSign", message.dataToSign.has_value());
  lines.hex("objectID", message.objectID);
  lines.set("PIN", message.PIN.has_value());
  lines.set("signedData", message.signedData.has_value());
  lines.hex("certificateUsedToAuthenticate", message.certificateUsedToAuthenticate);
  lines.set("decryptedData", message.decryptedData.has_value());
  lines.hex("selectedCertificateHash", message.selectedCertificateHash);
  if (message.messageID) {
    lines.line("messageID", message.messageID->text());
  }
  return std::move(lines).text();
}

std::string QuillMessage::description() const {
  return logText(*this, logging::kWholeText);
}

QuillMessage QuillMessage::initCommandMessageConnectWithCertificate(
    CertificateArray certificateArray) {
  QuillMessage message = request(QuillCommandConnect);
  message.certificateArray = std::move(certificateArray);
  return message;
}

QuillMessage QuillMessage::initCommandMessageConnectWithLocalhost() {
  CVNLogDebug("ConnectWithLocalhost Message");
  return request(QuillCommandConnect);
}

QuillMessage QuillMessage::initCommandMessageAuthenticateWithSignature(Bytes signature,
                                                                       Bytes certifificate) {
  CVNLogDebug("AuthenticateWithSignature");
  QuillMessage message = request(QuillCommandAuthenticate);
  message.challengeSignature = std::move(signature);
  message.certificateUsedToAuthenticate = std::move(certifificate);
  return message;
}

QuillMessage QuillMessage::initCommandMessageCreateEphemeralUser(std::string username) {
  CVNLogDebug("CreateEphemeralUser");
  QuillMessage message = request(QuillCommandCreateEmphemeralUser);
  message.ephemeralUsername = std::move(username);
  return message;
}

QuillMessage QuillMessage::initCommandMessageSignData(Bytes dataToSign,
                                                      Bytes signingCertificateHash,
                                                      SecretText pin) {
  CVNLogDebug("SignData Message");
  QuillMessage message = request(QuillCommandSignData);
  message.dataToSign = std::move(dataToSign);
  message.signingCertificateHash = std::move(signingCertificateHash);
  message.PIN = std::move(pin);
  return message;
}

QuillMessage QuillMessage::initCommandMessageDecryptDataWithObjectID(Bytes objectID,
                                                                     Bytes dataToDecrypt,
                                                                     SecretText pin) {
  CVNLogDebug("DecryptData Message");
  QuillMessage message = request(QuillCommandDecryptData);
  message.objectID = std::move(objectID);
  message.dataToDecrypt = std::move(dataToDecrypt);
  message.PIN = std::move(pin);
  return message;
}

QuillMessage QuillMessage::initCommandMessageGetCertificates() {
  CVNLogDebug("GetCertificates Message");
  return request(QuillCommandGetCertificates);
}

QuillMessage QuillMessage::initCommandMessageInsertSmartCardWithCertificates(
    Certificates certificates) {
  CVNLogDebug("InsertSmartCardWithCertificates Message");
  QuillMessage message = request(QuillCommandInsert);
  message.certificates = std::move(certificates);
  return message;
}

QuillMessage QuillMessage::initCommandMessageRemoveSmartCard() {
  CVNLogDebug("RemoveSmartCard Message");
  return request(QuillCommandRemove);
}

QuillMessage QuillMessage::initWithReplyMessageForCreateEphemeralUserStatus(
    bool status, std::string username, SecretText password, std::optional<UUID> messageID) {
  CVNLogDebug("Reply CreateEphemeralUser");
  QuillMessage message = response(QuillCommandCreateEmphemeralUser, status, messageID);
  message.ephemeralUsername = std::move(username);
  message.ephemeralPassword = std::move(password);
  return message;
}

QuillMessage QuillMessage::initWithReplyMessageForSignMessage(bool status,
                                                              std::optional<UUID> messageID,
                                                              Bytes signature) {
  CVNLogDebug("SignMessage Reply");
  QuillMessage message = response(QuillCommandSignData, status, messageID);
  message.signedData = std::move(signature);
  return message;
}

QuillMessage QuillMessage::initWithReplyMessageForDecryptDataWithStatus(
    bool status, std::optional<UUID> messageID, SecretBytes decryptedData) {
  CVNLogDebug("DecryptData Reply");
  QuillMessage message = response(QuillCommandDecryptData, status, messageID);
  message.decryptedData = std::move(decryptedData);
  return message;
}

QuillMessage QuillMessage::initWithReplyMessageForInsertStatus(bool status,
                                                               std::optional<UUID> messageID) {
  CVNLogDebug("InsertStatus Reply");
  return response(QuillCommandInsert, status, messageID);
}

QuillMessage QuillMessage::initWithReplyMessageForRemoveStatus(bool status,
                                                               std::optional<UUID> messageID) {
  CVNLogDebug("RemoveStatus Reply");
  return response(QuillCommandRemove, status, messageID);
}

QuillMessage QuillMessage::initWithReplyMessageForCommand(std::int64_t command, bool status,
                                                          std::optional<UUID> messageID) {
  CVNLogDebug("Command Reply");
  return response(command, status, messageID);
}
