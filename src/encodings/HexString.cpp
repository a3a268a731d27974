#include "encodings/HexString.hpp"

#include <algorithm>
#include <array>
#include <cstdint>

#include "base/HexDigit.hpp"
#include "base/UTF8.hpp"
#include "crypto/Digest.hpp"
#include "logging/CVNLog.hpp"

namespace encodings {
namespace {

constexpr std::string_view kHexDigits = "0123456789ABCDEF";
constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Marks a character outside the alphabet, whose values are 0 to 63. Both readers skip it.
constexpr std::uint8_t kSkip = 65;

constexpr std::array<std::uint8_t, 256> kDecodingTable = [] {
  std::array<std::uint8_t, 256> table{};
  table.fill(kSkip);
  for (std::size_t value = 0; value < kAlphabet.size(); ++value) {
    table[static_cast<std::uint8_t>(kAlphabet[value])] = static_cast<std::uint8_t>(value);
  }
  return table;
}();

constexpr int kNoDigit = -1;

// Decodes one group of up to four values into `output`. Returns the number of bytes written.
std::size_t decodeGroup(std::span<const std::uint8_t> values, std::uint8_t *output) {
  if (values.size() >= 2) {
    output[0] = static_cast<std::uint8_t>(values[0] << 2 | values[1] >> 4);
  }
  if (values.size() >= 3) {
    output[1] = static_cast<std::uint8_t>(values[1] << 4 | values[2] >> 2);
  }
  if (values.size() == 4) {
    output[2] = static_cast<std::uint8_t>(values[2] << 6 | values[3]);
  }
  return values.size() < 2 ? 0 : values.size() - 1;
}

// What a Base64 text was made of.
struct Base64Count {
  std::size_t characters = 0;   // of the alphabet
  std::size_t padding = 0;      // "="
  bool isPaddedInside = false;  // a character of the alphabet follows a "="
};

// Decodes the whole groups at the beginning of `text` and removes them from it.
std::size_t decodeGroups(ByteView &text, std::uint8_t *output) {
  std::size_t length = 0;
  for (; text.size() >= 4; text = text.subspan(4)) {
    const std::array<std::uint8_t, 4> values{kDecodingTable[text[0]], kDecodingTable[text[1]],
                                             kDecodingTable[text[2]], kDecodingTable[text[3]]};
    if ((values[0] | values[1] | values[2] | values[3]) >= kAlphabet.size()) {
      break;
    }
    length += decodeGroup(values, output + length);
  }
  return length;
}

// Decodes all alphabet characters of `text`, skipping every other one.
template <typename Buffer>
Buffer decodeSkipping(ByteView text, Base64Count &count) {
  Buffer output((text.size() + 3) / 4 * 3);
  std::size_t length = 0;
  std::array<std::uint8_t, 4> group{};
  std::size_t collected = 0;
  while (!text.empty()) {
    if (collected == 0) {  // the usual case, at once
      const std::size_t decoded = decodeGroups(text, output.data() + length);
      length += decoded;
      count.isPaddedInside = count.isPaddedInside || (decoded != 0 && count.padding != 0);
      if (text.empty()) {
        break;
      }
    }
    const std::uint8_t character = text.front();
    text = text.subspan(1);
    if (kDecodingTable[character] == kSkip) {
      count.padding += character == '=' ? 1 : 0;
      continue;
    }
    count.isPaddedInside = count.isPaddedInside || count.padding != 0;
    group[collected++] = kDecodingTable[character];
    if (collected == group.size()) {
      length += decodeGroup(group, output.data() + length);
      collected = 0;
    }
  }
  count.characters = length / 3 * 4 + collected;
  length += decodeGroup(std::span(group).first(collected), output.data() + length);
  output.resize(length);
  return output;
}

}  // namespace

std::string hexString(ByteView bytes) {
  std::string text(bytes.size() * 2, '\0');
  for (std::size_t index = 0; index < bytes.size(); ++index) {
    text[2 * index] = kHexDigits[bytes[index] >> 4];
    text[2 * index + 1] = kHexDigits[bytes[index] & 0x0F];
  }
  return text;
}

std::string logText(const Hex &hex, std::size_t most) {
  return hexString(hex.bytes.first(std::min(hex.bytes.size(), most / 2 + 1)));
}

std::optional<Bytes> dataWithHexString(std::string_view text) {
  if (text.starts_with("0x") || text.starts_with("0X")) {
    text.remove_prefix(2);
  }
  if (base::characterCount(text) % 2 != 0) {
    return std::nullopt;
  }
  Bytes bytes(text.size() / 2);
  for (std::size_t index = 0; index < text.size(); index += 2) {
    // All characters before this one are digits of one byte each, so the index counts characters
    // too. A character of several bytes fails here: none of its bytes is a digit.
    const int high = base::hexDigitValue(text[index]);
    const int low = index + 1 < text.size() ? base::hexDigitValue(text[index + 1]) : kNoDigit;
    if (high == kNoDigit || low == kNoDigit) {
      CVNLog("String should be all hex digits: %@ (bad digit around %ld)", text, index);
      return std::nullopt;
    }
    bytes[index / 2] = static_cast<std::uint8_t>(high << 4 | low);
  }
  return bytes;
}

Bytes sha1(ByteView bytes) {
  return crypto::sha1Digest(bytes);
}

Bytes sha256(ByteView bytes) {
  return crypto::sha256Digest(bytes);
}

std::string base64EncodedString(ByteView bytes) {
  return base64EncodeBytes(bytes, /*separateLines=*/true);
}

Bytes dataFromBase64String(std::string_view text) {
  const bool isASCII = std::ranges::all_of(
      text, [](char character) { return static_cast<std::uint8_t>(character) < 0x80; });
  return isASCII ? base64DecodeBytes(base::viewOf(text)) : Bytes{};
}

std::optional<CleansedBytes> dataFromBase64Field(std::string_view text) {
  Base64Count count;
  auto decoded = decodeSkipping<CleansedBytes>(base::viewOf(text), count);
  if (count.isPaddedInside || count.padding > 2 || (count.characters + count.padding) % 4 != 0) {
    return std::nullopt;
  }
  return decoded;
}

std::string base64EncodeBytes(ByteView bytes, bool separateLines) {
  std::string text;
  const std::size_t characters = (bytes.size() + 2) / 3 * 4;
  text.reserve(characters + (separateLines ? characters / kBase64LineCharacters * 2 : 0));
  while (!bytes.empty()) {
    const ByteView part = bytes.first(std::min(bytes.size(), kBase64LineBytes));
    std::array<char, kBase64LineCharacters> line;
    text.append(line.data(), base64EncodeLine(part, line));
    bytes = bytes.subspan(part.size());
    if (separateLines && !bytes.empty()) {
      text += "\r\n";
    }
  }
  return text;
}

Bytes base64DecodeBytes(ByteView text) {
  Base64Count ignored;
  return decodeSkipping<Bytes>(text, ignored);
}

Bytes base64DecodeBytes(const std::uint8_t *input, std::size_t length) {
  if (length == kUpToNUL) {
    for (length = 0; input[length] != 0;) {
      ++length;
    }
  }
  return base64DecodeBytes(ByteView(input, length));
}

std::size_t base64EncodeLine(ByteView bytes, std::span<char, kBase64LineCharacters> line) {
  std::size_t length = 0;
  for (; bytes.size() >= 3; bytes = bytes.subspan(3)) {
    const unsigned group = unsigned{bytes[0]} << 16 | unsigned{bytes[1]} << 8 | bytes[2];
    line[length] = kAlphabet[group >> 18];
    line[length + 1] = kAlphabet[group >> 12 & 63U];
    line[length + 2] = kAlphabet[group >> 6 & 63U];
    line[length + 3] = kAlphabet[group & 63U];
    length += 4;
  }
  if (!bytes.empty()) {
    const unsigned group = unsigned{bytes[0]} << 8 | (bytes.size() > 1 ? bytes[1] : 0U);
    line[length] = kAlphabet[group >> 10];
    line[length + 1] = kAlphabet[group >> 4 & 63U];
    line[length + 2] = bytes.size() > 1 ? kAlphabet[group << 2 & 63U] : '=';
    line[length + 3] = '=';
    length += 4;
  }
  return length;
}

}  // namespace encodings
