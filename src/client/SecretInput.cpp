#include "client/SecretInput.hpp"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>

#include "base/Bytes.hpp"
#include "base/Files.hpp"
#include "client/WaitLimits.hpp"

namespace client {
namespace {

constexpr std::size_t kLongestSecret = 64 * 1024;

SecretText firstLineOf(CleansedBytes content) {
  content.erase(std::ranges::find(content, '\n'), content.end());
  if (!content.empty() && content.back() == '\r') {
    content.pop_back();
  }
  return SecretText(std::move(content));
}

// Turns off echo and line editing while it exists. Signals are off too: Ctrl-C would otherwise
// leave the terminal without echo.
class NoEchoTerminal {
 public:
  explicit NoEchoTerminal(int descriptor) : descriptor_(descriptor) {
    hasNoEcho_ = ::tcgetattr(descriptor, &before_) == 0;
    termios noEcho = before_;
    noEcho.c_lflag &= ~static_cast<tcflag_t>(ECHO | ICANON | ISIG);
    hasNoEcho_ = hasNoEcho_ && ::tcsetattr(descriptor, TCSAFLUSH, &noEcho) == 0;
  }
  ~NoEchoTerminal() {
    if (hasNoEcho_) {
      ::tcsetattr(descriptor_, TCSAFLUSH, &before_);
    }
  }
  NoEchoTerminal(const NoEchoTerminal &) = delete;
  NoEchoTerminal &operator=(const NoEchoTerminal &) = delete;

  [[nodiscard]] bool hasNoEcho() const { return hasNoEcho_; }

 private:
  int descriptor_;
  bool hasNoEcho_ = false;
  termios before_{};
};

// A UTF-8 character can have several bytes.
void removeLastCharacter(CleansedBytes &line) {
  while (!line.empty()) {
    const bool isContinuation = (line.back() & 0xC0) == 0x80;
    line.pop_back();
    if (!isContinuation) {
      return;
    }
  }
}

// Nothing if the user cancelled or the wait was stopped.
std::optional<SecretText> typedLine(int terminal, const WaitLimits &limits) {
  constexpr char kCtrlC = 3;
  constexpr char kCtrlD = 4;
  constexpr char kBackspace = 8;
  constexpr char kDelete = 127;
  CleansedBytes line;
  char key = 0;
  while (line.size() < kLongestSecret && waitFor(terminal, /*toWrite=*/false, limits) &&
         ::read(terminal, &key, 1) == 1) {
    if (key == '\n' || key == '\r') {
      return SecretText(std::move(line));
    }
    if (key == kCtrlC || key == kCtrlD) {
      return std::nullopt;
    }
    if (key == kBackspace || key == kDelete) {
      removeLastCharacter(line);
    } else {
      line.push_back(static_cast<std::uint8_t>(key));
    }
  }
  return std::nullopt;
}

void show(int terminal, std::string_view text) {
  // If the write fails, the read fails too.
  [[maybe_unused]] const ssize_t written = ::write(terminal, text.data(), text.size());
}

}  // namespace

std::optional<SecretText> secretFromFile(const std::string &path, Error *error) {
  auto content = base::readFile(path, kLongestSecret, error);
  return content ? std::optional(firstLineOf(std::move(*content))) : std::nullopt;
}

std::optional<SecretText> secretFromDescriptor(int descriptor, Error *error) {
  CleansedBytes line;
  std::uint8_t byte = 0;
  while (line.size() < kLongestSecret && byte != '\n') {
    const ssize_t got = ::read(descriptor, &byte, 1);
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got < 0) {
      base::reportErrno(error, errno, "cannot read descriptor " + std::to_string(descriptor));
      return std::nullopt;
    }
    if (got == 0) {
      break;
    }
    line.push_back(byte);
  }
  return firstLineOf(std::move(line));
}

base::Descriptor openTerminal() {
  return base::Descriptor(::open("/dev/tty", O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
}

std::optional<SecretText> secretFromTerminal(int terminal, const std::string &question,
                                             int stopDescriptor, Error *error) {
  if (terminal < 0) {
    base::report(error, "terminal", 0, "there is no terminal to ask at");
    return std::nullopt;
  }
  const NoEchoTerminal silence(terminal);
  if (!silence.hasNoEcho()) {
    base::report(error, "terminal", 0, "the terminal cannot be made silent");
    return std::nullopt;
  }
  show(terminal, question);
  auto line = typedLine(terminal, {Deadline::max(), stopDescriptor});
  show(terminal, "\n");
  if (!line) {
    base::report(error, "terminal", 0, "the question was cancelled");
  }
  return line;
}

}  // namespace client
