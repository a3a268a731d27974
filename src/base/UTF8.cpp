#include "base/UTF8.hpp"

#include <algorithm>
#include <cstdint>

namespace base {
namespace {

bool continues(std::uint8_t byte) {
  return (byte & 0xC0) == 0x80;
}

// How a character may begin (RFC 3629, section 4): its first byte, its length and the range of its
// second byte. That range excludes overlong forms, surrogates and code points past U+10FFFF.
struct Form {
  std::uint8_t first;
  std::uint8_t last;
  std::size_t length;
  std::uint8_t secondFrom;
  std::uint8_t secondTo;
};

constexpr Form kForms[] = {
    {0x00, 0x7F, 1, 0, 0},       {0xC2, 0xDF, 2, 0x80, 0xBF}, {0xE0, 0xE0, 3, 0xA0, 0xBF},
    {0xE1, 0xEC, 3, 0x80, 0xBF}, {0xED, 0xED, 3, 0x80, 0x9F}, {0xEE, 0xEF, 3, 0x80, 0xBF},
    {0xF0, 0xF0, 4, 0x90, 0xBF}, {0xF1, 0xF3, 4, 0x80, 0xBF}, {0xF4, 0xF4, 4, 0x80, 0x8F},
};

// The length of the first character; 0 if the bytes do not begin with a well-formed one.
std::size_t characterLength(ByteView bytes) {
  const Form *form = std::ranges::find_if(kForms, [&](const Form &candidate) {
    return bytes[0] >= candidate.first && bytes[0] <= candidate.last;
  });
  if (form == std::end(kForms) || bytes.size() < form->length) {
    return 0;
  }
  if (form->length > 1 && (bytes[1] < form->secondFrom || bytes[1] > form->secondTo)) {
    return 0;
  }
  const ByteView rest = bytes.subspan(std::min<std::size_t>(form->length, 2),
                                      form->length > 2 ? form->length - 2 : 0);
  return std::ranges::all_of(rest, continues) ? form->length : 0;
}

}  // namespace

std::optional<Character> firstCharacter(ByteView bytes) {
  const std::size_t length = characterLength(bytes);
  if (length == 0) {
    return std::nullopt;
  }
  // the first byte of a longer character begins with one 1 bit per byte, then a 0 bit
  char32_t number = length == 1 ? bytes[0] : bytes[0] & (0x7FU >> length);
  for (const std::uint8_t byte : bytes.subspan(1, length - 1)) {
    number = (number << 6U) | (byte & 0x3FU);
  }
  return Character{number, length};
}

bool isUTF8(ByteView bytes) {
  while (!bytes.empty()) {
    const std::size_t length = characterLength(bytes);
    if (length == 0) {
      return false;
    }
    bytes = bytes.subspan(length);
  }
  return true;
}

std::size_t characterCount(std::string_view text) {
  const auto starts = [](std::uint8_t byte) { return !continues(byte); };
  return static_cast<std::size_t>(std::ranges::count_if(viewOf(text), starts));
}

std::string_view firstCharacters(std::string_view text, std::size_t count) {
  const ByteView bytes = viewOf(text);
  std::size_t end = 0;
  for (; end < bytes.size(); ++end) {
    if (continues(bytes[end])) {
      continue;
    }
    if (count == 0) {
      break;
    }
    --count;
  }
  return text.substr(0, end);
}

}  // namespace base
