#include "identity/FingerprintText.hpp"

#include "encodings/HexString.hpp"

namespace identity {

std::string fingerprintText(ByteView digest) {
  std::string text;
  for (const std::uint8_t byte : digest) {
    text += (text.empty() ? "" : ":") + encodings::hexString({&byte, 1});
  }
  return text;
}

}  // namespace identity
