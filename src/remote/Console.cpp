#include "remote/Console.hpp"

#include <cstddef>
#include <cstdint>
#include <utility>

namespace remote {
namespace {

constexpr std::size_t kLongestError = 2000;

}  // namespace

void Console::add(OutputWriter::Stream stream, std::string_view before, std::string_view text) {
  if (stream == OutputWriter::errors) {
    text = text.substr(0, kLongestError);
  }
  CleansedBytes line;
  line.reserve(before.size() + text.size() + 1);
  for (const std::string_view part : {before, text, std::string_view("\n")}) {
    const ByteView bytes = base::viewOf(part);
    line.insert(line.end(), bytes.begin(), bytes.end());
  }
  writer_.add(stream, line);
}

std::string printable(std::string_view text) {
  return std::string(printable(SecretText(text)).reveal());
}

SecretText printable(const SecretText &text) {
  const ByteView bytes = base::viewOf(text.reveal());
  CleansedBytes result;
  result.reserve(bytes.size());
  for (std::size_t index = 0; index < bytes.size(); ++index) {
    const std::uint8_t byte = bytes[index];
    const std::uint8_t next = index + 1 < bytes.size() ? bytes[index + 1] : 0;
    // U+0080 to U+009F, which some terminals obey as well
    const bool isLongControl = byte == 0xC2 && next >= 0x80 && next < 0xA0;
    const bool isControl = byte < 0x20 || byte == 0x7F || isLongControl;
    result.push_back(isControl ? std::uint8_t{'?'} : byte);
    index += isLongControl ? 1 : 0;
  }
  return SecretText(std::move(result));
}

}  // namespace remote
