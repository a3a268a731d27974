// The lenient Base64 reader takes anything, and reads what is written for its bytes as these bytes.
// Where the reader of single fields gives bytes for ASCII text, they are the same ones.

#include <algorithm>

#include "Expect.hpp"
#include "encodings/HexString.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const std::string_view text = base::textOf({data, size});
  const Bytes bytes = encodings::dataFromBase64String(text);
  expect(bytes.size() <= size &&
         encodings::dataFromBase64String(encodings::base64EncodedString(bytes)) == bytes);
  const bool isASCII = std::ranges::all_of(text, [](char letter) { return (letter & 0x80) == 0; });
  const auto field = encodings::dataFromBase64Field(text);
  expect(!field || !isASCII || base::equal(*field, bytes));
  return 0;
}
