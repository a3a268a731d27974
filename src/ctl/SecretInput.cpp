#include "ctl/SecretInput.hpp"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>

#include "base/Bytes.hpp"
#include "base/Descriptor.hpp"
#include "base/Files.hpp"

namespace ctl {
namespace {

constexpr std::size_t kLongestSecret = 64 * 1024;

SecretText firstLineOf(ByteView bytes) {
  const std::string_view text = base::textOf(bytes);
  const std::string_view line = text.substr(0, text.find('\n'));
  return SecretText(line.ends_with('\r') ? line.substr(0, line.size() - 1) : line);
}

// The terminal without echo, and giving each key at once: with its usual signals a Ctrl-C would
// leave it silent.
class SilentTerminal {
 public:
  explicit SilentTerminal(int descriptor) : descriptor_(descriptor) {
    isTerminal_ = ::tcgetattr(descriptor, &before_) == 0;
    termios silent = before_;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO | ICANON | ISIG);
    isTerminal_ = isTerminal_ && ::tcsetattr(descriptor, TCSAFLUSH, &silent) == 0;
  }
  ~SilentTerminal() {
    if (isTerminal_) {
      ::tcsetattr(descriptor_, TCSAFLUSH, &before_);
    }
  }
  SilentTerminal(const SilentTerminal &) = delete;
  SilentTerminal &operator=(const SilentTerminal &) = delete;

  [[nodiscard]] bool isTerminal() const { return isTerminal_; }

 private:
  int descriptor_;
  bool isTerminal_ = false;
  termios before_{};
};

// One character of UTF-8 may be several bytes.
void removeLastCharacter(CleansedBytes &line) {
  while (!line.empty()) {
    const bool isContinuation = (line.back() & 0xC0) == 0x80;
    line.pop_back();
    if (!isContinuation) {
      return;
    }
  }
}

// Nothing if the line was cancelled.
std::optional<SecretText> typedLine(int terminal) {
  constexpr char kCtrlC = 3;
  constexpr char kCtrlD = 4;
  constexpr char kBackspace = 8;
  constexpr char kDelete = 127;
  CleansedBytes line;
  char key = 0;
  while (line.size() < kLongestSecret && ::read(terminal, &key, 1) == 1) {
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
  // a terminal that takes no question gives no answer either
  [[maybe_unused]] const ssize_t written = ::write(terminal, text.data(), text.size());
}

}  // namespace

std::optional<SecretText> secretFromFile(const std::string &path, Error *error) {
  const auto content = base::readFile(path, kLongestSecret, error);
  return content ? std::optional(firstLineOf(*content)) : std::nullopt;
}

std::optional<SecretText> secretFromDescriptor(int descriptor, Error *error) {
  CleansedBytes content(kLongestSecret);
  std::size_t length = 0;
  while (length < content.size()) {
    const ssize_t got = ::read(descriptor, content.data() + length, content.size() - length);
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
    length += static_cast<std::size_t>(got);
  }
  return firstLineOf(ByteView(content).first(length));
}

std::optional<SecretText> secretFromTerminal(const std::string &question, Error *error) {
  const base::Descriptor terminal(::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC));
  if (!terminal.isOpen()) {
    base::report(error, "terminal", 0, "there is no terminal to ask at");
    return std::nullopt;
  }
  const SilentTerminal silence(terminal.get());
  if (!silence.isTerminal()) {
    base::report(error, "terminal", 0, "the terminal cannot be made silent");
    return std::nullopt;
  }
  show(terminal.get(), question);
  auto line = typedLine(terminal.get());
  show(terminal.get(), "\n");
  if (!line) {
    base::report(error, "terminal", 0, "the question was cancelled");
  }
  return line;
}

}  // namespace ctl
