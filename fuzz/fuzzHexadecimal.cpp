// Hexadecimal text that is read is, but for its prefix and case, the text that is written for its
// bytes.

#include <strings.h>

#include "Expect.hpp"
#include "encodings/HexString.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const std::string text(base::textOf({data, size}));
  if (const auto bytes = encodings::dataWithHexString(text)) {
    const std::string written = encodings::hexString(*bytes);
    expect(text.size() >= written.size() &&
           strcasecmp(text.c_str() + (text.size() - written.size()), written.c_str()) == 0);
  }
  return 0;
}
