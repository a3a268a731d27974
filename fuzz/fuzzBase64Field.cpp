// Where the reader of single fields gives bytes for ASCII text, the lenient reader gives the same
// ones.

#include <algorithm>
#include <cstdlib>

#include "support/HexString.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const ByteView input(data, size);
  const auto field = support::dataFromBase64Field(base::textOf(input));
  const bool isASCII = std::ranges::all_of(input, [](std::uint8_t byte) { return byte < 0x80; });
  if (field && isASCII &&
      !base::equal(*field, support::dataFromBase64String(base::textOf(input)))) {
    std::abort();
  }
  return 0;
}
