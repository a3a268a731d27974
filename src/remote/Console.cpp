#include "remote/Console.hpp"

#include <cstddef>

#include "base/DisplayText.hpp"

namespace remote {
namespace {

constexpr std::size_t kLongestError = 2000;

}  // namespace

void Console::add(OutputWriter::Stream stream, std::string_view before, std::string_view text) {
  if (stream == OutputWriter::errors) {
    text = text.substr(0, kLongestError);
  }
  const SecretText shown = base::displayText(SecretText(text));
  CleansedBytes line;
  line.reserve(before.size() + shown.reveal().size() + 1);
  for (const std::string_view part : {before, shown.reveal(), std::string_view("\n")}) {
    const ByteView bytes = base::viewOf(part);
    line.insert(line.end(), bytes.begin(), bytes.end());
  }
  writer_.add(stream, line);
}

}  // namespace remote
