#include "remote/Console.hpp"

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <utility>

namespace remote {
namespace {

void writeLine(std::FILE *stream, const std::string &line) {
  // a reader that is gone stops nothing
  (void)std::fputs((line + "\n").c_str(), stream);
  (void)std::fflush(stream);
}

}  // namespace

void say(const std::string &line) {
  writeLine(stdout, line);
}

void saySecret(std::string_view before, const SecretText &secret) {
  CleansedBytes line;
  for (const std::string_view part : {before, secret.reveal(), std::string_view("\n")}) {
    const ByteView bytes = base::viewOf(part);
    line.insert(line.end(), bytes.begin(), bytes.end());
  }
  // not through the stream, whose buffer would keep it
  (void)std::fflush(stdout);
  (void)!::write(STDOUT_FILENO, line.data(), line.size());
}

void complain(const std::string &what) {
  writeLine(stderr, "kfy-remote: error: " + what);
}

void warn(const std::string &what) {
  writeLine(stderr, "kfy-remote: warning: " + what);
}

void advise(const std::string &command) {
  writeLine(stderr, "kfy-remote: try: " + command);
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
