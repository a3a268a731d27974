#include "remote/Console.hpp"

#include <unistd.h>

#include <cstdio>
#include <string>

#include "base/DisplayText.hpp"

namespace remote {
namespace {

void writeLine(std::FILE *stream, const char *before, std::string_view text) {
  // a reader that is gone stops nothing
  (void)std::fputs((before + base::displayText(text) + "\n").c_str(), stream);
  (void)std::fflush(stream);
}

}  // namespace

void say(std::string_view line) {
  writeLine(stdout, "", line);
}

void saySecret(std::string_view before, const SecretText &secret) {
  const SecretText shown = base::displayText(secret);
  CleansedBytes line;
  for (const std::string_view part : {before, shown.reveal(), std::string_view("\n")}) {
    const ByteView bytes = base::viewOf(part);
    line.insert(line.end(), bytes.begin(), bytes.end());
  }
  // not through the stream, whose buffer would keep it
  (void)std::fflush(stdout);
  (void)!::write(STDOUT_FILENO, line.data(), line.size());
}

void complain(std::string_view what) {
  writeLine(stderr, "kfy-remote: error: ", what);
}

void warn(std::string_view what) {
  writeLine(stderr, "kfy-remote: warning: ", what);
}

void advise(std::string_view command) {
  writeLine(stderr, "kfy-remote: try: ", command);
}

}  // namespace remote
