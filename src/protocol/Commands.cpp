#include "protocol/Commands.hpp"

#include <algorithm>
#include <array>
#include <type_traits>

namespace protocol {
namespace {

constexpr const Field *kAuthentication[] = {&kChallengeSignature, &kCertificateUsedToAuthenticate};
constexpr const Field *kConnectAnswer[] = {&kSelectedCertificateHash, &kChallenge, &kErrorMessage};
constexpr const Field *kCardAlone[] = {&kCertificates};
constexpr const Field *kSignRequest[] = {&kSigningCertificateHash, &kPIN, &kDataToSign};
constexpr const Field *kSignAnswer[] = {&kSignedData};
constexpr const Field *kUserRequest[] = {&kEphemeralUsername};
constexpr const Field *kUserAnswer[] = {&kEphemeralPassword, &kEphemeralUsername};
constexpr const Field *kErrorAlone[] = {&kErrorMessage};
constexpr const Field *kDecryptRequest[] = {&kDataToDecrypt, &kPIN, &kObjectID};
constexpr const Field *kDecryptAnswer[] = {&kDecryptedData};

// Sorted by number.
constexpr Command kCommands[] = {
    {.command = QuillCommandConnect,
     .text = "connect",
     .trace = "QuillCommandConnectString received",
     .request = {.trace = "JSON QuillCommandConnect", .optional = &kCertificateArray},
     .response = {.trace = "JSON QuillCommandConnect", .emptyIfUnset = kConnectAnswer}},
    {.command = QuillCommandAuthenticate,
     .text = "authenticate",
     .trace = "QuillCommandAuthenticateString received",
     .request = {.trace = "JSON QuillCommandAuthenticate Request", .required = kAuthentication},
     .response = {.trace = "JSON QuillCommandAuthenticate Response"}},
    {.command = QuillCommandInsert,
     .text = "insert",
     .trace = "QuillCommandInsertString received",
     .request = {.trace = "JSON QuillCommandInsert Request", .required = kCardAlone},
     .response = {.trace = "JSON QuillCommandInsert Response"}},
    {.command = QuillCommandRemove,
     .text = "remove",
     .trace = "QuillCommandRemoveString received",
     .request = {.trace = "JSON QuillCommandRemove Request"},
     .response = {.trace = "JSON QuillCommandRemove Response"}},
    {.command = QuillCommandGetCertificates,
     .text = "get_certificates",
     .trace = "QuillCommandGetCertificatesString received",
     .request = {.trace = "JSON QuillCommandGetCertificates Request"},
     .response = {.trace = "JSON QuillCommandGetCertificates Response", .required = kCardAlone}},
    {.command = QuillCommandSignData,
     .text = "sign_data",
     .trace = "QuillCommandSignDataString received",
     .request = {.trace = "JSON SignData Request", .required = kSignRequest},
     .response = {.trace = "JSON SignData Response", .required = kSignAnswer},
     .certificateHash = &QuillMessage::signingCertificateHash},
    {.command = QuillCommandCreateEmphemeralUser,
     .text = "create_user",
     .trace = "QuillCommandCreateEmphemeralUserString received",
     .request = {.trace = "JSON QuillCommandCreateEmphemeralUser Request",
                 .required = kUserRequest},
     .response = {.trace = "JSON QuillCommandCreateEmphemeralUser Response",
                  .required = kUserAnswer,
                  .emptyIfUnset = kErrorAlone}},
    {.command = QuillCommandDecryptData,
     .text = "decrypt_data",
     .trace = "QuillCommandDecryptDataString received",
     .request = {.trace = "JSON QuillCommandDecryptData Request", .required = kDecryptRequest},
     .response = {.trace = "JSON QuillCommandDecryptData Response", .required = kDecryptAnswer},
     .certificateHash = &QuillMessage::objectID},
};

static_assert(std::ranges::all_of(kCommands, [](const Command &row) {
  return &kCommands[row.command] == &row;
}));

// An empty value of a field, whatever its type.
struct EmptyValue {
  template <typename Value>
  void operator()(std::optional<Value> &field) const {
    field.emplace();
  }
  void operator()(QuillMessage::Certificates &list) const {
    list = std::make_shared<const CardList>(std::vector<CardEntry>{});
  }
};

}  // namespace

const Command *commandOf(std::int64_t command) {
  const auto *const row = std::ranges::find(kCommands, command, &Command::command);
  return row == std::end(kCommands) ? nullptr : row;
}

const Command *commandNamed(std::string_view text) {
  const auto *const row = std::ranges::find(kCommands, text, &Command::text);
  return row == std::end(kCommands) ? nullptr : row;
}

const Form &formOf(const Command &command, const QuillMessage &message) {
  return message.messageType == QuillMessageTypeRequest ? command.request : command.response;
}

void setRequiredEmpty(QuillMessage &message) {
  const Command *const command = commandOf(message.command);
  if (command == nullptr) {
    return;
  }
  for (const Field *field : formOf(*command, message).required) {
    std::visit(
        [&message](auto place) {
          if (!(message.*place)) {
            EmptyValue()(message.*place);
          }
        },
        field->place);
  }
}

}  // namespace protocol
