#include "protocol/JSONWriter.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

#include "encodings/HexString.hpp"

namespace protocol {
namespace {

constexpr std::array<bool, 256> kNeedsEscape = [] {
  std::array<bool, 256> table{};
  std::fill_n(table.begin(), 0x20, true);
  table['"'] = table['\\'] = table['/'] = true;
  return table;
}();

bool needsEscape(char character) {
  return kNeedsEscape[static_cast<std::uint8_t>(character)];
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
  putText(name, "\":");
  needsComma_ = false;
}

void JSONWriter::text(std::string_view value) {
  putText(value, "\"");
}

void JSONWriter::boolean(bool value) {
  raw(value ? "true" : "false");
}

void JSONWriter::base64(ByteView bytes, bool separateLines) {
  put({separator(), "\""});
  while (!bytes.empty()) {
    const ByteView part = bytes.first(std::min(bytes.size(), encodings::kBase64LineBytes));
    putBase64(part);
    bytes = bytes.subspan(part.size());
    if (separateLines && !bytes.empty()) {
      put({"\\r\\n"});
    }
  }
  put({"\""});
}

// At most one line.
void JSONWriter::putBase64(ByteView bytes) {
  std::array<char, encodings::kBase64LineCharacters> line;
  const std::size_t length = encodings::base64EncodeLine(bytes, line);
  const std::span<std::uint8_t> room = base::extend(output_, 2 * length);
  std::size_t written = 0;
  for (const char character : std::span(line).first(length)) {
    room[written] = '\\';
    written += character == '/' ? 1 : 0;
    room[written] = static_cast<std::uint8_t>(character);
    ++written;
  }
  output_.resize(output_.size() - (room.size() - written));
  base::cleanse(line.data(), line.size());
}

void JSONWriter::raw(std::string_view json) {
  put({separator(), json});
}

void JSONWriter::open(char bracket) {
  put({separator(), {&bracket, 1}});
  needsComma_ = false;
}

void JSONWriter::close(char bracket) {
  output_.push_back(static_cast<std::uint8_t>(bracket));
  needsComma_ = true;
}

std::string_view JSONWriter::separator() {
  return std::exchange(needsComma_, true) ? "," : "";
}

void JSONWriter::put(std::initializer_list<std::string_view> pieces) {
  std::size_t size = 0;
  for (const std::string_view piece : pieces) {
    size += piece.size();
  }
  auto place = base::extend(output_, size).begin();
  for (const std::string_view piece : pieces) {
    place = std::ranges::copy(piece, place).out;
  }
}

void JSONWriter::putText(std::string_view characters, std::string_view end) {
  if (std::ranges::none_of(characters, needsEscape)) {
    return put({separator(), "\"", characters, end});
  }
  put({separator(), "\""});
  putEscaped(characters);
  put({end});
}

void JSONWriter::putEscaped(std::string_view characters) {
  static constexpr std::string_view kDigits = "0123456789abcdef";
  while (!characters.empty()) {
    const auto special = std::ranges::find_if(characters, needsEscape);
    put({{characters.begin(), special}});
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
    put({{escape.data(), letter == 'u' ? escape.size() : 2}});
    characters = {special + 1, characters.end()};
  }
}

}  // namespace protocol
