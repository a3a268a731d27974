#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Bytes.hpp"
#include "base/Secret.hpp"
#include "base/UUID.hpp"
#include "encodings/Base64CodeArrayData.hpp"
#include "protocol/CardList.hpp"
#include "protocol/QuillCommand.hpp"

// One message of the protocol: a request or a response of one of eight commands. A plain record:
// command and type decide which fields are encoded.
class QuillMessage {
 public:
  using CertificateArray = std::vector<encodings::ArrayElement>;
  using Certificates = std::shared_ptr<const protocol::CardList>;

  bool status = false;
  std::int64_t messageType = QuillMessageTypeRequest;
  std::int64_t command = QuillCommandConnect;
  std::optional<CertificateArray> certificateArray;  // 20-byte public-key hashes
  std::optional<Bytes> challenge;
  std::optional<Bytes> challengeSignature;
  Certificates certificates;  // null: not set
  std::optional<std::string> ephemeralUsername;
  std::optional<SecretText> ephemeralPassword;
  std::optional<std::string> errorMessage;
  std::optional<Bytes> dataToSign;
  std::optional<Bytes> signingCertificateHash;
  std::optional<Bytes> dataToDecrypt;
  std::optional<Bytes> objectID;
  std::optional<SecretText> PIN;
  std::optional<Bytes> signedData;
  std::optional<Bytes> certificateUsedToAuthenticate;
  std::optional<SecretBytes> decryptedData;
  std::optional<Bytes> selectedCertificateHash;
  std::optional<UUID> messageID;

  // Reads a message from its JSON text (UTF-8, RFC 8259). Nothing, mostly with a log line, if the
  // bytes are no usable message. An unknown command becomes command 0; an unreadable message ID
  // stays unset. Without `readsList` a list of certificates counts as absent: decoding it costs
  // more than all the rest.
  [[nodiscard]] static std::optional<QuillMessage> initWithJSONData(ByteView data,
                                                                    bool readsList = true);

  // The JSON text; nothing, with a log line, if a field is missing that the command and type
  // require.
  [[nodiscard]] std::optional<CleansedBytes> json() const;

  // Several lines for logs, without a secret.
  [[nodiscard]] std::string description() const;

  // Requests, each with a fresh message ID.
  [[nodiscard]] static QuillMessage initCommandMessageConnectWithCertificate(
      CertificateArray certificateArray);
  [[nodiscard]] static QuillMessage initCommandMessageConnectWithLocalhost();
  [[nodiscard]] static QuillMessage initCommandMessageAuthenticateWithSignature(
      Bytes signature, Bytes certifificate);
  [[nodiscard]] static QuillMessage initCommandMessageCreateEphemeralUser(std::string username);
  [[nodiscard]] static QuillMessage initCommandMessageSignData(Bytes dataToSign,
                                                               Bytes signingCertificateHash,
                                                               SecretText pin);
  [[nodiscard]] static QuillMessage initCommandMessageDecryptDataWithObjectID(Bytes objectID,
                                                                              Bytes dataToDecrypt,
                                                                              SecretText pin);
  [[nodiscard]] static QuillMessage initCommandMessageGetCertificates();
  [[nodiscard]] static QuillMessage initCommandMessageInsertSmartCardWithCertificates(
      Certificates certificates);
  [[nodiscard]] static QuillMessage initCommandMessageRemoveSmartCard();

  // Responses, with the message ID of the request that they answer.
  [[nodiscard]] static QuillMessage initWithReplyMessageForCreateEphemeralUserStatus(
      bool status, std::string username, SecretText password, std::optional<UUID> messageID);
  [[nodiscard]] static QuillMessage initWithReplyMessageForSignMessage(
      bool status, std::optional<UUID> messageID, Bytes signature);
  [[nodiscard]] static QuillMessage initWithReplyMessageForDecryptDataWithStatus(
      bool status, std::optional<UUID> messageID, SecretBytes decryptedData);
  [[nodiscard]] static QuillMessage initWithReplyMessageForInsertStatus(
      bool status, std::optional<UUID> messageID);
  [[nodiscard]] static QuillMessage initWithReplyMessageForRemoveStatus(
      bool status, std::optional<UUID> messageID);
  [[nodiscard]] static QuillMessage initWithReplyMessageForCommand(std::int64_t command,
                                                                   bool status,
                                                                   std::optional<UUID> messageID);
};

// For log lines: the description. One longer than `most` bytes may be cut after `most` bytes.
[[nodiscard]] std::string logText(const QuillMessage &message, std::size_t most);
