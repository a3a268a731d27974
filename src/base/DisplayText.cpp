#include "base/DisplayText.hpp"

#include <algorithm>
#include <cstdint>
#include <iterator>

#include "base/UTF8.hpp"

namespace base {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

struct Range {
  char32_t first;
  char32_t last;
};

// Characters that a terminal obeys instead of showing them.
constexpr Range kObeyed[] = {
    {0x00, 0x1F},     {0x7F, 0x9F},     {0x061C, 0x061C},
    {0x200E, 0x200F}, {0x2028, 0x202E}, {0x2066, 0x2069},
};

bool isObeyed(char32_t character) {
  return std::ranges::any_of(kObeyed, [&](const Range &range) {
    return character >= range.first && character <= range.last;
  });
}

// Copies text. For each character that a terminal obeys `replace` writes a substitute. A byte that
// is no UTF-8 is passed to `replace` as kReplacement.
template <typename Replace>
CleansedBytes copyWith(ByteView text, const Replace &replace) {
  CleansedBytes result;
  result.reserve(text.size());
  while (!text.empty()) {
    const auto character = firstCharacter(text);
    const ByteView bytes = text.first(character ? character->length : 1);
    if (!character || isObeyed(character->number)) {
      replace(result, character ? character->number : kReplacement);
    } else {
      result.insert(result.end(), bytes.begin(), bytes.end());
    }
    text = text.subspan(bytes.size());
  }
  return result;
}

void putQuestionMark(CleansedBytes &result, char32_t /*character*/) {
  result.push_back('?');
}

// Kept as they are: well-formed JSON has C0 controls only between tokens.
void putEscape(CleansedBytes &result, char32_t character) {
  static constexpr std::string_view kDigits = "0123456789abcdef";
  if (character < ' ') {
    result.push_back(static_cast<std::uint8_t>(character));
    return;
  }
  result.insert(result.end(), {'\\', 'u'});
  for (int shift = 12; shift >= 0; shift -= 4) {
    result.push_back(static_cast<std::uint8_t>(kDigits[(character >> shift) & 0x0F]));
  }
}

}  // namespace

std::string displayText(std::string_view text) {
  return std::string(textOf(copyWith(viewOf(text), putQuestionMark)));
}

SecretText displayText(const SecretText &text) {
  return SecretText(copyWith(viewOf(text.reveal()), putQuestionMark));
}

CleansedBytes displayJSON(ByteView json) {
  return copyWith(json, putEscape);
}

std::string inGroups(std::string_view digits) {
  std::string groups;
  for (std::size_t index = 0; index < digits.size(); ++index) {
    groups += index > 0 && index % 4 == 0 ? " " : "";
    groups += digits[index];
  }
  return groups;
}

}  // namespace base
