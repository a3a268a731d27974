// A message that is read and can be written is read back as the same message.

#include <cstdlib>

#include "protocol/QuillMessage.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const auto message = QuillMessage::initWithJSONData({data, size});
  if (!message) {
    return 0;
  }
  (void)message->description();
  const auto written = message->json();
  if (!written) {
    return 0;
  }
  const auto again = QuillMessage::initWithJSONData(*written);
  const auto rewritten = again ? again->json() : std::nullopt;
  if (!rewritten || *rewritten != *written) {
    std::abort();
  }
  if (again->certificates) {
    (void)protocol::certificateInfosOf(*again->certificates);
  }
  return 0;
}
