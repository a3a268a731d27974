#pragma once

#include <string>
#include <string_view>

#include "base/Bytes.hpp"
#include "base/Secret.hpp"

namespace base {

// Text from elsewhere (a certificate's name, a label, what a server says) as it may be shown, in
// one line of well-formed UTF-8. "?" takes the place of each character that a terminal, or a reader
// of lines, obeys instead of showing it: controls (C0, DEL, C1), separators of lines and paragraphs
// (U+2028, U+2029), controls of the writing direction (Unicode's Bidi_Control), and of each byte
// that is no UTF-8.
[[nodiscard]] std::string displayText(std::string_view text);
[[nodiscard]] SecretText displayText(const SecretText &text);

// The same for a JSON text (RFC 8259), which keeps its values: such characters inside of strings
// become \u escapes. White space between the tokens stays, and a byte that is no UTF-8 becomes
// U+FFFD.
[[nodiscard]] CleansedBytes displayJSON(ByteView json);

}  // namespace base
