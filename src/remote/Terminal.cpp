#include "remote/Terminal.hpp"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <string_view>

#include "client/Patience.hpp"

namespace remote {
namespace {

// Switches the echo off for its lifetime.
class WithoutEcho {
 public:
  explicit WithoutEcho(int terminal) : terminal_(terminal) {
    if (::tcgetattr(terminal_, &before_) == 0) {
      termios silent = before_;
      silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
      isSet_ = ::tcsetattr(terminal_, TCSAFLUSH, &silent) == 0;
    }
  }
  ~WithoutEcho() {
    if (isSet_) {
      ::tcsetattr(terminal_, TCSAFLUSH, &before_);
    }
  }
  WithoutEcho(const WithoutEcho &) = delete;
  WithoutEcho &operator=(const WithoutEcho &) = delete;
  [[nodiscard]] bool isSet() const { return isSet_; }

 private:
  int terminal_;
  termios before_{};
  bool isSet_ = false;
};

void write(int terminal, std::string_view text) {
  // a terminal that takes nothing is noticed when nobody answers
  (void)!::write(terminal, text.data(), text.size());
}

}  // namespace

Terminal::Terminal() : terminal_(::open("/dev/tty", O_RDWR | O_NONBLOCK | O_CLOEXEC)) {}

bool Terminal::canAsk() const {
  if (!terminal_.isOpen()) {
    return false;
  }
  const pid_t foreground = ::tcgetpgrp(terminal_.get());
  return foreground < 0 || foreground == ::getpgrp();
}

void Terminal::show(const std::string &question) {
  (void)::tcflush(terminal_.get(), TCIFLUSH);
  write(terminal_.get(), question);
}

std::string Terminal::readLine() {
  std::array<char, 256> line{};
  const ssize_t length = ::read(terminal_.get(), line.data(), line.size());
  std::string_view text(line.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
  while (text.ends_with('\n') || text.ends_with('\r') || text.ends_with(' ')) {
    text.remove_suffix(1);
  }
  return std::string(text);
}

std::optional<SecretText> Terminal::askSecret(const std::string &question, int stopDescriptor,
                                              Error *error) {
  const WithoutEcho silence(terminal_.get());
  if (!canAsk() || !silence.isSet()) {
    base::report(error, "password", 0, "there is no terminal to ask for the password");
    return std::nullopt;
  }
  write(terminal_.get(), question);
  client::Patience patience;
  patience.deadline = client::Deadline::max();
  patience.stopDescriptor = stopDescriptor;
  CleansedBytes line(4096);
  ssize_t length = -1;
  if (client::waitFor(terminal_.get(), /*toWrite=*/false, patience)) {
    length = ::read(terminal_.get(), line.data(), line.size());
  }
  write(terminal_.get(), "\n");
  if (length <= 0) {
    base::report(error, "password", 0, "no password was given");
    return std::nullopt;
  }
  line.resize(static_cast<std::size_t>(length));
  if (line.back() == '\n') {
    line.pop_back();
  }
  return SecretText(std::move(line));
}

}  // namespace remote
