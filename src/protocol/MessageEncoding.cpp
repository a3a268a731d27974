#include <algorithm>
#include <initializer_list>
#include <span>

#include "protocol/JSONCodec.hpp"
#include "protocol/JSONWriter.hpp"
#include "protocol/MessageFields.hpp"
#include "support/CVNLog.hpp"
#include "support/HexString.hpp"

namespace protocol {
namespace {

using FieldList = std::span<const Field *const>;

// What one command and type writes besides "type", "command" and "message_id".
struct Row {
  QuillCommand command;
  QuillMessageType type;
  const char *trace;
  FieldList required;               // without one of these the message can't be written
  bool status = false;              // "status"
  FieldList emptyIfUnset = {};      // written as "" where not set
  const Field *optional = nullptr;  // written only where set
};

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

constexpr bool kWithStatus = true;

constexpr Row kRows[] = {
    {QuillCommandConnect,
     QuillMessageTypeRequest,
     "JSON QuillCommandConnect",
     {},
     false,
     {},
     &kCertificateArray},
    {QuillCommandConnect,
     QuillMessageTypeResponse,
     "JSON QuillCommandConnect",
     {},
     kWithStatus,
     kConnectAnswer},
    {QuillCommandAuthenticate, QuillMessageTypeRequest, "JSON QuillCommandAuthenticate Request",
     kAuthentication},
    {QuillCommandAuthenticate,
     QuillMessageTypeResponse,
     "JSON QuillCommandAuthenticate Response",
     {},
     kWithStatus},
    {QuillCommandInsert, QuillMessageTypeRequest, "JSON QuillCommandInsert Request", kCardAlone},
    {QuillCommandInsert,
     QuillMessageTypeResponse,
     "JSON QuillCommandInsert Response",
     {},
     kWithStatus},
    {QuillCommandRemove, QuillMessageTypeRequest, "JSON QuillCommandRemove Request", {}},
    {QuillCommandRemove,
     QuillMessageTypeResponse,
     "JSON QuillCommandRemove Response",
     {},
     kWithStatus},
    {QuillCommandGetCertificates,
     QuillMessageTypeRequest,
     "JSON QuillCommandGetCertificates Request",
     {}},
    {QuillCommandGetCertificates, QuillMessageTypeResponse,
     "JSON QuillCommandGetCertificates Response", kCardAlone, kWithStatus},
    {QuillCommandSignData, QuillMessageTypeRequest, "JSON SignData Request", kSignRequest},
    {QuillCommandSignData, QuillMessageTypeResponse, "JSON SignData Response", kSignAnswer,
     kWithStatus},
    {QuillCommandCreateEmphemeralUser, QuillMessageTypeRequest,
     "JSON QuillCommandCreateEmphemeralUser Request", kUserRequest},
    {QuillCommandCreateEmphemeralUser, QuillMessageTypeResponse,
     "JSON QuillCommandCreateEmphemeralUser Response", kUserAnswer, kWithStatus, kErrorAlone},
    {QuillCommandDecryptData, QuillMessageTypeRequest, "JSON QuillCommandDecryptData Request",
     kDecryptRequest},
    {QuillCommandDecryptData, QuillMessageTypeResponse, "JSON QuillCommandDecryptData Response",
     kDecryptAnswer, kWithStatus},
};

bool isSet(const Field &field, const QuillMessage &message) {
  return std::visit([&](auto place) { return static_cast<bool>(message.*place); }, field.place);
}

// Writes the value of a field that is set.
class ValueWriter {
 public:
  explicit ValueWriter(JSONWriter &writer) : writer_(writer) {}

  void operator()(const std::optional<Bytes> &bytes) {
    writer_.base64(*bytes, /*separateLines=*/true);
  }
  void operator()(const std::optional<SecretBytes> &bytes) {
    writer_.base64(bytes->reveal(), /*separateLines=*/true);
  }
  void operator()(const std::optional<std::string> &text) { writer_.text(*text); }
  void operator()(const std::optional<SecretText> &text) { writer_.text(text->reveal()); }
  void operator()(const std::optional<QuillMessage::CertificateArray> &array) {
    writer_.beginArray();
    for (const support::ArrayElement &element : support::base64DataEncodedArray(*array)) {
      if (const auto *other = std::get_if<support::OtherValue>(&element)) {
        writer_.raw(other->json);
      } else if (const auto *text = std::get_if<std::string>(&element)) {
        writer_.text(*text);
      }
    }
    writer_.endArray();
  }
  void operator()(const QuillMessage::Certificates &list) {
    writer_.beginArray();
    for (const CardEntry &entry : list->entries()) {
      writer_.raw(entry.json);
    }
    writer_.endArray();
  }

 private:
  JSONWriter &writer_;
};

void writeField(JSONWriter &writer, const Field &field, const QuillMessage &message) {
  writer.key(field.key);
  std::visit([&](auto place) { ValueWriter{writer}(message.*place); }, field.place);
}

void writeRow(JSONWriter &writer, const Row &row, const QuillMessage &message) {
  writer.beginObject();
  writer.key("type");
  writer.text(row.type == QuillMessageTypeRequest ? "request" : "response");
  writer.key("command");
  writer.text(kCommands[static_cast<std::size_t>(row.command)].text);
  writer.key("message_id");
  writer.text(message.messageID->text());
  for (const Field *field : row.required) {
    writeField(writer, *field, message);
  }
  for (const Field *field : row.emptyIfUnset) {
    if (isSet(*field, message)) {
      writeField(writer, *field, message);
    } else {
      writer.key(field->key);
      writer.text("");
    }
  }
  if (row.optional != nullptr && isSet(*row.optional, message)) {
    writeField(writer, *row.optional, message);
  }
  if (row.status) {
    writer.key("status");
    writer.boolean(message.status);
  }
  writer.endObject();
}

const Row *rowOf(const QuillMessage &message) {
  const auto *const row = std::ranges::find_if(kRows, [&](const Row &candidate) {
    return candidate.command == message.command && candidate.type == message.messageType;
  });
  return row == std::end(kRows) ? nullptr : row;
}

bool canWrite(const Row *row, const QuillMessage &message) {
  return row != nullptr && message.messageID &&
         std::ranges::all_of(row->required,
                             [&](const Field *field) { return isSet(*field, message); });
}

void traceRow(const Row &row, const QuillMessage &message) {
  CVNLogDebug("%s", row.trace);
  if (row.optional == &kCertificateArray) {
    if (message.certificateArray) {
      CVNLogDebug("JSON certificateArray Request");
    } else {
      CVNLogDebug("JSON no cert Array found Reply");
    }
  }
}

}  // namespace

bool appendJSON(CleansedBytes &output, const QuillMessage &message) {
  CVNLogDebug("Encoding JSON");
  if (message.messageType != QuillMessageTypeRequest &&
      message.messageType != QuillMessageTypeResponse) {
    CVNLog("invalid message type: %li", message.messageType);
    return false;
  }
  const Row *row = rowOf(message);
  if (!canWrite(row, message)) {
    // the writer has no error of its own to tell
    CVNLog("%s", "(null)");
    return false;
  }
  traceRow(*row, message);
  JSONWriter writer(output);
  writeRow(writer, *row, message);
  return true;
}

}  // namespace protocol

std::optional<CleansedBytes> QuillMessage::json() const {
  CleansedBytes text;
  if (!protocol::appendJSON(text, *this)) {
    return std::nullopt;
  }
  return text;
}
