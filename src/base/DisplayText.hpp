#pragma once

#include <string>
#include <string_view>

#include "base/Bytes.hpp"
#include "base/Secret.hpp"

namespace base {

// Makes foreign text (a certificate's name, a label, a server's message) safe to show: one line of
// well-formed UTF-8. "?" replaces each byte that is no UTF-8 and each character that a terminal or
// a reader of lines obeys instead of showing it: controls (C0, DEL, C1), line and paragraph
// separators (U+2028, U+2029) and controls of the writing direction (Unicode's Bidi_Control).
[[nodiscard]] std::string displayText(std::string_view text);
[[nodiscard]] SecretText displayText(const SecretText &text);

// The same for a JSON text (RFC 8259), whose values do not change: such characters inside strings
// become \u escapes. White space between tokens stays. A byte that is no UTF-8 becomes U+FFFD.
[[nodiscard]] CleansedBytes displayJSON(ByteView json);

// Digits in groups of four, as people compare them: "C296 7355".
[[nodiscard]] std::string inGroups(std::string_view digits);

}  // namespace base
