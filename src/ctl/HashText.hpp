#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/Bytes.hpp"

namespace ctl {

// The text of a hash as people paste it, without "0x" and without colons.
[[nodiscard]] std::string plainDigits(std::string_view text);

// True if the text holds hexadecimal digits, in either case, and nothing else.
[[nodiscard]] bool isHexadecimal(std::string_view text);

// Reads a SHA-1 hash: 40 hexadecimal digits in either case, with "0x" or colons or without. Nothing
// for any other text.
[[nodiscard]] std::optional<Bytes> sha1FromText(std::string_view text);

}  // namespace ctl
