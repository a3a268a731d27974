// A message that is read and can be written is read back as the same message: all that travels is
// what it was, and is written the same again.

#include <algorithm>

#include "Expect.hpp"
#include "protocol/MessageFields.hpp"
#include "protocol/QuillMessage.hpp"

namespace {

bool areEqual(const auto &left, const auto &right) {
  if constexpr (requires { left.reveal(); }) {
    return std::ranges::equal(left.reveal(), right.reveal());
  } else if constexpr (requires { left.entries(); }) {
    return std::ranges::equal(left.entries(), right.entries(), [](auto &one, auto &two) {
      return one.json == two.json && one.certificateSHA1 == two.certificateSHA1;
    });
  } else {
    return left == right;
  }
}

bool isEmpty(const auto &value) {
  return value.empty();
}
bool isEmpty(const protocol::CardList & /*list*/) {
  return false;
}

// Command and type decide which fields travel: one that is dropped is no fault, nor is an empty one
// in place of none.
void expectEqual(const QuillMessage &read, const QuillMessage &again) {
  expect(read.messageType == again.messageType && read.command == again.command &&
         read.messageID == again.messageID);
  for (const protocol::Field *field : protocol::kFieldsAsRead) {
    std::visit(
        [&](auto place) {
          expect(!(again.*place) || (read.*place ? areEqual(*(read.*place), *(again.*place))
                                                 : isEmpty(*(again.*place))));
        },
        field->place);
  }
}

}  // namespace

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
  expect(rewritten && *rewritten == *written);
  expectEqual(*message, *again);
  if (again->certificates) {
    (void)protocol::certificateInfosOf(*again->certificates);
  }
  return 0;
}
