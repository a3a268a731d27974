#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "base/Bytes.hpp"

namespace base {

// True if the bytes are well-formed UTF-8 (RFC 3629: no overlong forms, no surrogates).
[[nodiscard]] bool isUTF8(ByteView bytes);

// A character: its Unicode code point, and its length in bytes.
struct Character {
  char32_t number;
  std::size_t length;
};

// The first character of the bytes, which must not be empty. Nothing if it is not well-formed
// UTF-8.
[[nodiscard]] std::optional<Character> firstCharacter(ByteView bytes);

// The number of characters in well-formed UTF-8 text.
[[nodiscard]] std::size_t characterCount(std::string_view text);

// The first `count` characters of well-formed UTF-8 text; all of it if it has fewer.
[[nodiscard]] std::string_view firstCharacters(std::string_view text, std::size_t count);

}  // namespace base
