#pragma once

namespace base {

// The value of a hexadecimal digit in either case; -1 for any other character.
[[nodiscard]] constexpr int hexDigitValue(char character) {
  if (character >= '0' && character <= '9') {
    return character - '0';
  }
  if (character >= 'A' && character <= 'F') {
    return character - 'A' + 10;
  }
  if (character >= 'a' && character <= 'f') {
    return character - 'a' + 10;
  }
  return -1;
}

}  // namespace base
