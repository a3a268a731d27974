#include "protocol/JSONWriter.hpp"

#include <algorithm>
#include <array>
#include <cstdint>

#include "encodings/HexString.hpp"

namespace protocol {
namespace {

bool needsEscape(char character) {
  return character == '"' || character == '\\' || character == '/' ||
         static_cast<std::uint8_t>(character) < 0x20;
}

// The letter behind the backslash (RFC 8259, section 7); 'u' if the character has no short escape.
char escapeLetter(char character) {
  switch (character) {
    case '\b':
      return 'b';
    case '\f':
      return 'f';
    case '\n':
      return 'n';
    case '\r':
      return 'r';
    case '\t':
      return 't';
    default:
      return needsEscape(character) && static_cast<std::uint8_t>(character) >= 0x20 ? character
                                                                                    : 'u';
  }
}

}  // namespace

void JSONWriter::key(std::string_view name) {
  text(name);
  put(":");
  needsComma_ = false;
}

void JSONWriter::text(std::string_view value) {
  separate();
  put("\"");
  putEscaped(value);
  put("\"");
}

void JSONWriter::boolean(bool value) {
  raw(value ? "true" : "false");
}

void JSONWriter::base64(ByteView bytes, bool separateLines) {
  separate();
  put("\"");
  while (!bytes.empty()) {
    const ByteView part = bytes.first(std::min(bytes.size(), encodings::kBase64LineBytes));
    std::array<char, encodings::kBase64LineCharacters> line;
    putEscaped({line.data(), encodings::base64EncodeLine(part, line)});
    base::cleanse(line.data(), line.size());
    bytes = bytes.subspan(part.size());
    if (separateLines && !bytes.empty()) {
      put("\\r\\n");
    }
  }
  put("\"");
}

void JSONWriter::raw(std::string_view json) {
  separate();
  put(json);
}

void JSONWriter::open(char bracket) {
  separate();
  output_.push_back(static_cast<std::uint8_t>(bracket));
  needsComma_ = false;
}

void JSONWriter::close(char bracket) {
  output_.push_back(static_cast<std::uint8_t>(bracket));
  needsComma_ = true;
}

void JSONWriter::separate() {
  if (needsComma_) {
    put(",");
  }
  needsComma_ = true;
}

void JSONWriter::put(std::string_view characters) {
  const ByteView bytes = base::viewOf(characters);
  output_.insert(output_.end(), bytes.begin(), bytes.end());
}

void JSONWriter::putEscaped(std::string_view characters) {
  static constexpr std::string_view kDigits = "0123456789abcdef";
  while (!characters.empty()) {
    const auto special = std::ranges::find_if(characters, needsEscape);
    put({characters.begin(), special});
    if (special == characters.end()) {
      return;
    }
    const char letter = escapeLetter(*special);
    const std::array<char, 6> escape{'\\',
                                     letter,
                                     '0',
                                     '0',
                                     kDigits[static_cast<std::uint8_t>(*special) >> 4],
                                     kDigits[static_cast<std::uint8_t>(*special) & 0x0F]};
    put({escape.data(), letter == 'u' ? escape.size() : 2});
    characters = {special + 1, characters.end()};
  }
}

}  // namespace protocol
