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

// The output gets at least so much where nothing is reserved. A message without a card's list fits.
constexpr std::size_t kLeastRoom = 1024;

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

CleansedBytes JSONWriter::take() {
  output_.resize(end_);
  return std::move(output_);
}

void JSONWriter::key(std::string_view name) {
  putText(name);
  put("\":");
  needsComma_ = false;
}

void JSONWriter::text(std::string_view value) {
  putText(value);
  put("\"");
}

void JSONWriter::boolean(bool value) {
  raw(value ? "true" : "false");
}

void JSONWriter::base64(ByteView bytes, bool separateLines) {
  putSeparator();
  put("\"");
  while (!bytes.empty()) {
    const ByteView part = bytes.first(std::min(bytes.size(), encodings::kBase64LineBytes));
    putBase64(part);
    bytes = bytes.subspan(part.size());
    if (separateLines && !bytes.empty()) {
      put("\\r\\n");
    }
  }
  put("\"");
}

// At most one line.
void JSONWriter::putBase64(ByteView bytes) {
  std::array<char, encodings::kBase64LineCharacters> line;
  std::string_view rest(line.data(), encodings::base64EncodeLine(bytes, line));
  for (std::size_t slash = rest.find('/'); slash != std::string_view::npos;
       slash = rest.find('/')) {
    put(rest.substr(0, slash));
    put("\\/");
    rest.remove_prefix(slash + 1);
  }
  put(rest);
  base::cleanse(line.data(), line.size());
}

void JSONWriter::raw(std::string_view json) {
  putSeparator();
  put(json);
}

void JSONWriter::open(char bracket) {
  putSeparator();
  put({&bracket, 1});
  needsComma_ = false;
}

void JSONWriter::close(char bracket) {
  put({&bracket, 1});
  needsComma_ = true;
}

void JSONWriter::putSeparator() {
  if (std::exchange(needsComma_, true)) {
    put(",");
  }
}

void JSONWriter::put(std::string_view characters) {
  if (output_.size() - end_ < characters.size()) {
    const std::size_t reserved = output_.capacity() - output_.size();
    base::extend(output_, std::max(characters.size(), reserved == 0 ? kLeastRoom : reserved));
  }
  base::copy(base::viewOf(characters), output_.data() + end_);
  end_ += characters.size();
}

// Without the quote at its end.
void JSONWriter::putText(std::string_view characters) {
  static constexpr std::string_view kDigits = "0123456789abcdef";
  putSeparator();
  put("\"");
  for (;;) {
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
