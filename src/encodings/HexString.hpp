#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "base/Bytes.hpp"
#include "base/Secret.hpp"

namespace encodings {

// Two upper-case hexadecimal digits per byte, no separators.
[[nodiscard]] std::string hexString(ByteView bytes);

// Bytes for a log line: their hexadecimal text, made only when the line is written.
struct Hex {
  ByteView bytes;
};
[[nodiscard]] std::string logText(const Hex &hex, std::size_t most);

// Reads hexadecimal text in either case, with at most one prefix "0x" or "0X". Nothing for an odd
// number of characters (without a log line) or a character that is no digit (with a log line).
[[nodiscard]] std::optional<Bytes> dataWithHexString(std::string_view text);

// Digests of all bytes, FIPS 180-4: 20 and 32 bytes.
[[nodiscard]] Bytes sha1(ByteView bytes);
[[nodiscard]] Bytes sha256(ByteView bytes);

// Base64 (RFC 4648, section 4) with CR LF after every 64 characters but not after the last line.
[[nodiscard]] std::string base64EncodedString(ByteView bytes);

// The lenient reader: every character outside the alphabet is skipped, "=" too; groups are formed
// across padding and line breaks, and a single character left over is dropped. Never fails; text
// with a character outside ASCII gives no bytes.
[[nodiscard]] Bytes dataFromBase64String(std::string_view text);

// The reader of single fields: characters outside the alphabet and "=" are skipped; what remains
// must be a multiple of four characters with "=" only as the last one or two, else the result is
// nothing. Empty text gives an empty buffer.
[[nodiscard]] std::optional<CleansedBytes> dataFromBase64Field(std::string_view text);

// The routines that the functions above call. A line of encoded text takes 48 bytes and gives 64
// characters.
inline constexpr std::size_t kBase64LineBytes = 48;
inline constexpr std::size_t kBase64LineCharacters = 64;
[[nodiscard]] std::string base64EncodeBytes(ByteView bytes, bool separateLines);
[[nodiscard]] Bytes base64DecodeBytes(ByteView text);

// The same for `length` bytes from `input` on. kUpToNUL as length: all bytes before the first NUL.
inline constexpr std::size_t kUpToNUL = std::numeric_limits<std::size_t>::max();
[[nodiscard]] Bytes base64DecodeBytes(const std::uint8_t *input, std::size_t length);

// Encodes at most kBase64LineBytes into `line`, padded, and returns the number of characters.
std::size_t base64EncodeLine(ByteView bytes, std::span<char, kBase64LineCharacters> line);

}  // namespace encodings
