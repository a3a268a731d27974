#include "ctl/HashText.hpp"

#include <cstddef>

#include "encodings/HexString.hpp"

namespace ctl {
namespace {

constexpr std::size_t kSHA1Digits = 40;

}  // namespace

std::string plainDigits(std::string_view text) {
  if (text.starts_with("0x") || text.starts_with("0X")) {
    text.remove_prefix(2);
  }
  std::string digits(text);
  std::erase(digits, ':');
  return digits;
}

bool isHexadecimal(std::string_view text) {
  return text.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
}

std::optional<Bytes> sha1FromText(std::string_view text) {
  const std::string digits = plainDigits(text);
  return digits.size() == kSHA1Digits && isHexadecimal(digits)
             ? encodings::dataWithHexString(digits)
             : std::nullopt;
}

}  // namespace ctl
