#include <algorithm>
#include <utility>

#include "encodings/HexString.hpp"
#include "logging/CVNLog.hpp"
#include "protocol/Commands.hpp"
#include "protocol/JSONCodec.hpp"
#include "protocol/JSONWriter.hpp"

namespace protocol {
namespace {

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
    for (const encodings::ArrayElement &element : encodings::base64DataEncodedArray(*array)) {
      if (const auto *other = std::get_if<encodings::OtherValue>(&element)) {
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

void writeMessage(JSONWriter &writer, const Command &command, const QuillMessage &message) {
  const Form &form = formOf(command, message);
  const bool isRequest = message.messageType == QuillMessageTypeRequest;
  writer.beginObject();
  writer.key("type");
  writer.text(isRequest ? "request" : "response");
  writer.key("command");
  writer.text(command.text);
  writer.key("message_id");
  writer.text(message.messageID->text());
  for (const Field *field : form.required) {
    writeField(writer, *field, message);
  }
  for (const Field *field : form.emptyIfUnset) {
    if (isSet(*field, message)) {
      writeField(writer, *field, message);
    } else {
      writer.key(field->key);
      writer.text("");
    }
  }
  if (form.optional != nullptr && isSet(*form.optional, message)) {
    writeField(writer, *form.optional, message);
  }
  if (!isRequest) {
    writer.key("status");
    writer.boolean(message.status);
  }
  writer.endObject();
}

bool canWrite(const Form &form, const QuillMessage &message) {
  return message.messageID && std::ranges::all_of(form.required, [&](const Field *field) {
           return isSet(*field, message);
         });
}

void traceForm(const Form &form, const QuillMessage &message) {
  CVNLogDebug("%s", form.trace);
  if (form.optional == &kCertificateArray) {
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
  const Command *const command = commandOf(message.command);
  if (command == nullptr || !canWrite(formOf(*command, message), message)) {
    // the writer reports no errors of its own
    CVNLog("%s", "(null)");
    return false;
  }
  traceForm(formOf(*command, message), message);
  JSONWriter writer(std::move(output));
  writeMessage(writer, *command, message);
  output = writer.take();
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
