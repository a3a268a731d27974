// The lenient Base64 reader takes anything, and reads what is written for its bytes as these bytes.

#include <cstdlib>

#include "support/HexString.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const Bytes bytes = support::dataFromBase64String(base::textOf({data, size}));
  if (bytes.size() > size ||
      support::dataFromBase64String(support::base64EncodedString(bytes)) != bytes) {
    std::abort();
  }
  return 0;
}
