#include "base/UUID.hpp"

#include <cstdlib>
#include <cstring>

#include "base/HexDigit.hpp"

namespace base {
namespace {

constexpr std::size_t kTextLength = 36;

bool isHyphenAt(std::size_t index) {
  return index == 8 || index == 13 || index == 18 || index == 23;
}

}  // namespace

UUID UUID::random() {
  UUID uuid;
  arc4random_buf(uuid.bytes.data(), uuid.bytes.size());
  uuid.bytes[6] = static_cast<std::uint8_t>((uuid.bytes[6] & 0x0F) | 0x40);
  uuid.bytes[8] = static_cast<std::uint8_t>((uuid.bytes[8] & 0x3F) | 0x80);
  return uuid;
}

std::optional<UUID> UUID::fromText(std::string_view text) {
  if (text.size() != kTextLength) {
    return std::nullopt;
  }
  UUID uuid;
  std::size_t nibble = 0;
  for (std::size_t index = 0; index < kTextLength; ++index) {
    if (isHyphenAt(index)) {
      if (text[index] != '-') {
        return std::nullopt;
      }
      continue;
    }
    const int value = hexDigitValue(text[index]);
    if (value < 0) {
      return std::nullopt;
    }
    std::uint8_t &byte = uuid.bytes[nibble / 2];
    byte = static_cast<std::uint8_t>(byte << 4 | value);
    ++nibble;
  }
  return uuid;
}

std::string UUID::text() const {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text(kTextLength, '-');
  std::size_t place = 0;
  for (const std::uint8_t byte : bytes) {
    place += isHyphenAt(place) ? 1 : 0;
    text[place] = kDigits[byte >> 4];
    text[place + 1] = kDigits[byte & 0x0F];
    place += 2;
  }
  return text;
}

}  // namespace base

std::size_t std::hash<base::UUID>::operator()(const base::UUID &uuid) const noexcept {
  static const std::uint64_t key[2] = {
      static_cast<std::uint64_t>(arc4random()) << 32 | arc4random(),
      (static_cast<std::uint64_t>(arc4random()) << 32 | arc4random()) | 1,
  };
  std::uint64_t high = 0;
  std::uint64_t low = 0;
  std::memcpy(&high, uuid.bytes.data(), sizeof(high));
  std::memcpy(&low, uuid.bytes.data() + sizeof(high), sizeof(low));
  std::uint64_t mixed = (high ^ key[0]) * key[1];
  mixed = (mixed ^ mixed >> 32 ^ low) * key[1];
  return static_cast<std::size_t>(mixed ^ mixed >> 29);
}
