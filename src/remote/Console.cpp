#include "remote/Console.hpp"

#include <cstdio>

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
  std::string result(text);
  for (std::size_t index = 0; index < result.size(); ++index) {
    const auto character = static_cast<unsigned char>(result[index]);
    const auto next =
        static_cast<unsigned char>(index + 1 < result.size() ? result[index + 1] : '\0');
    if (character < 0x20 || character == 0x7F) {
      result[index] = '?';
    } else if (character == 0xC2 && next >= 0x80 && next < 0xA0) {
      // U+0080 to U+009F, which some terminals obey as well
      result.replace(index, 2, "?");
    }
  }
  return result;
}

}  // namespace remote
