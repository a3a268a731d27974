#include <algorithm>
#include <array>
#include <boost/json.hpp>
#include <charconv>
#include <cmath>
#include <exception>
#include <iterator>

#include "encodings/HexString.hpp"
#include "logging/CVNLog.hpp"
#include "protocol/Commands.hpp"
#include "protocol/JSONWriter.hpp"
#include "protocol/ParsedJSON.hpp"

namespace protocol {
namespace {

namespace json = boost::json;

template <typename Number>
void writeNumber(JSONWriter &writer, Number number) {
  std::array<char, 40> text;
  const auto end = std::to_chars(text.data(), text.data() + text.size(), number).ptr;
  writer.raw({text.data(), end});
}

void writeDouble(JSONWriter &writer, double number) {
  // "-0" read as an integer would lose its sign
  if (number == 0 && std::signbit(number)) {
    return writer.raw("-0.0");
  }
  writeNumber(writer, number);
}

void writeValue(JSONWriter &writer, const json::value &value) {
  switch (value.kind()) {
    case json::kind::null:
      writer.raw("null");
      break;
    case json::kind::bool_:
      writer.boolean(value.get_bool());
      break;
    case json::kind::int64:
      writeNumber(writer, value.get_int64());
      break;
    case json::kind::uint64:
      writeNumber(writer, value.get_uint64());
      break;
    case json::kind::double_:
      writeDouble(writer, value.get_double());
      break;
    case json::kind::string:
      writer.text(std::string_view(value.get_string()));
      break;
    case json::kind::array:
      writer.beginArray();
      for (const json::value &element : value.get_array()) {
        writeValue(writer, element);
      }
      writer.endArray();
      break;
    case json::kind::object:
      writer.beginObject();
      for (const json::key_value_pair &member : value.get_object()) {
        writer.key(std::string_view(member.key()));
        writeValue(writer, member.value());
      }
      writer.endObject();
      break;
  }
}

std::string compactText(const json::value &value) {
  JSONWriter writer;
  writeValue(writer, value);
  return std::string(base::textOf(writer.take()));
}

// The text under a key. A missing key, null and a value of another type count as absent.
const json::string *textUnderKey(const json::object &object, std::string_view key) {
  const json::value *value = object.if_contains(key);
  return value == nullptr ? nullptr : value->if_string();
}

CardEntry cardEntryOf(const json::value &element) {
  CardEntry entry;
  entry.json = compactText(element);
  const json::object *dictionary = element.if_object();
  const json::string *text =
      dictionary == nullptr ? nullptr : textUnderKey(*dictionary, "certificate");
  if (text != nullptr) {
    entry.hasCertificate = true;
    entry.certificateSHA1 = certificateSHA1In(std::string_view(*text));
  }
  return entry;
}

encodings::ArrayElement arrayElementOf(const json::value &element) {
  if (const json::string *text = element.if_string()) {
    return std::string(std::string_view(*text));
  }
  return encodings::OtherValue{compactText(element)};
}

// Fills a field from a JSON value; false if the value is of another type and so counts as absent.
class ValueReader {
 public:
  explicit ValueReader(const json::value &value) : value_(value) {}

  bool operator()(std::optional<Bytes> &bytes) const {
    return readText([&](std::string_view text) {
      const auto decoded = encodings::dataFromBase64Field(text);
      bytes = decoded ? std::optional(Bytes(decoded->begin(), decoded->end())) : std::nullopt;
    });
  }
  bool operator()(std::optional<SecretBytes> &bytes) const {
    return readText([&](std::string_view text) {
      auto decoded = encodings::dataFromBase64Field(text);
      bytes = decoded ? std::optional(SecretBytes(std::move(*decoded))) : std::nullopt;
    });
  }
  bool operator()(std::optional<std::string> &text) const {
    return readText([&](std::string_view content) { text = std::string(content); });
  }
  bool operator()(std::optional<SecretText> &text) const {
    return readText([&](std::string_view content) { text = SecretText(content); });
  }
  bool operator()(std::optional<QuillMessage::CertificateArray> &array) const {
    return readArray([&](const json::array &elements) {
      QuillMessage::CertificateArray texts;
      std::ranges::transform(elements, std::back_inserter(texts), arrayElementOf);
      array = encodings::base64DecodedArray(texts);
    });
  }
  bool operator()(QuillMessage::Certificates &list) const {
    return readArray([&](const json::array &elements) {
      std::vector<CardEntry> entries;
      entries.reserve(elements.size());
      std::ranges::transform(elements, std::back_inserter(entries), cardEntryOf);
      list = std::make_shared<const CardList>(std::move(entries));
    });
  }

 private:
  template <typename Use>
  bool readText(Use use) const {
    const json::string *text = value_.if_string();
    if (text != nullptr) {
      use(std::string_view(*text));
    }
    return text != nullptr;
  }
  template <typename Use>
  bool readArray(Use use) const {
    const json::array *array = value_.if_array();
    if (array != nullptr) {
      use(*array);
    }
    return array != nullptr;
  }

  const json::value &value_;
};

void readField(const Field &field, const json::object &object, QuillMessage &message) {
  if (field.tracedAlways) {
    CVNLogDebug("%s", field.trace);
  }
  const json::value *value = object.if_contains(field.key);
  if (value == nullptr) {
    return;
  }
  const bool isRead =
      std::visit([&](auto place) { return ValueReader{*value}(message.*place); }, field.place);
  if (isRead && field.trace != nullptr && !field.tracedAlways) {
    CVNLogDebug("%s", field.trace);
  }
}

// True, or a number other than zero; nothing for any other type.
std::optional<bool> truthValue(const json::value &value) {
  if (value.is_bool()) {
    return value.get_bool();
  }
  if (value.is_number()) {
    return value.to_number<double>() != 0;
  }
  return std::nullopt;
}

void readStatus(const json::object &object, QuillMessage &message) {
  const json::value *value = object.if_contains("status");
  const std::optional<bool> status = value == nullptr ? std::nullopt : truthValue(*value);
  if (status) {
    CVNLogDebug("QuillMessageStatusString Received");
    message.status = *status;
  }
}

void readCommand(std::string_view text, QuillMessage &message) {
  const Command *const known = commandNamed(text);
  if (known == nullptr) {
    CVNLog("invalid command--%s", text);
    return;
  }
  CVNLogDebug("%s", known->trace);
  message.command = known->command;
}

bool readType(std::string_view text, QuillMessage &message) {
  if (text == "request") {
    CVNLogDebug("Message Type: Request");
    message.messageType = QuillMessageTypeRequest;
    return true;
  }
  if (text == "response") {
    CVNLogDebug("Message Type: Response");
    message.messageType = QuillMessageTypeResponse;
    return true;
  }
  CVNLog("Unknown message type received");
  return false;
}

void logUnusable(const std::string &reason, ByteView data) {
  const encodings::Hex payload{data};
  CVNLog("%s : %@", reason, payload);
  CVNLogDebug("%s : %@", reason, payload);
}

constexpr std::array<std::string_view, 3> kHeadKeys{"type", "message_id", "command"};

// The three texts that every message must have.
struct Head {
  std::string_view type;
  std::string_view messageID;
  std::string_view command;
};

// Nothing if one is missing or null (without a log line) or is no text (with a log line).
std::optional<Head> readHead(const json::object &object, ByteView data) {
  std::array<std::string_view, 3> texts;
  std::string_view wrong;
  for (std::size_t index = 0; index < kHeadKeys.size(); ++index) {
    const json::value *value = object.if_contains(kHeadKeys[index]);
    if (value == nullptr || value->is_null()) {
      return std::nullopt;
    }
    if (!value->is_string()) {
      wrong = kHeadKeys[index];
      continue;
    }
    texts[index] = std::string_view(value->get_string());
  }
  if (!wrong.empty()) {
    logUnusable("\"" + std::string(wrong) + "\" is not text", data);
    return std::nullopt;
  }
  return Head{texts[0], texts[1], texts[2]};
}

// True if the decoder needs the value under this key. Other values are not stored: a client that
// has not authenticated can make them as large as a frame.
bool isKnownKey(std::string_view key) {
  return key == "status" || std::ranges::find(kHeadKeys, key) != kHeadKeys.end() ||
         std::ranges::find(kFieldsAsRead, key, &Field::key) != kFieldsAsRead.end();
}

std::optional<QuillMessage> decode(ByteView data, bool readsList) {
  const ParsedJSON parsed(data, [readsList](std::string_view key) {
    return isKnownKey(key) && (readsList || key != kCertificates.key);
  });
  if (parsed.value() == nullptr) {
    logUnusable(parsed.error(), data);
    return std::nullopt;
  }
  const json::object *object = parsed.value()->if_object();
  if (object == nullptr) {
    logUnusable("not an object", data);
    return std::nullopt;
  }
  const auto head = readHead(*object, data);
  if (!head) {
    return std::nullopt;
  }
  QuillMessage message;
  message.messageID = UUID::fromText(head->messageID);
  readCommand(head->command, message);
  if (!readType(head->type, message)) {
    return std::nullopt;
  }
  for (const Field *field : kFieldsAsRead) {
    readField(*field, *object, message);
  }
  readStatus(*object, message);
  return message;
}

}  // namespace

}  // namespace protocol

std::optional<QuillMessage> QuillMessage::initWithJSONData(ByteView data, bool readsList) {
  try {
    return protocol::decode(data, readsList);
  } catch (const std::exception &failure) {  // the JSON library throws when memory runs out
    CVNLog("%s : %@", failure.what(), encodings::Hex{data});
    return std::nullopt;
  }
}
