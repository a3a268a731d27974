#include "remote/Terminal.hpp"

#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>

#include "client/SecretInput.hpp"

namespace remote {

Terminal::Terminal() : terminal_(client::openTerminal()) {}

bool Terminal::canAsk() const {
  if (!terminal_.isOpen()) {
    return false;
  }
  const pid_t foreground = ::tcgetpgrp(terminal_.get());
  return foreground < 0 || foreground == ::getpgrp();
}

void Terminal::show(const std::string &question) {
  rest_ = (wantsWrite() ? "\n" : "") + question;
  showRest();
}

void Terminal::showRest() {
  while (wantsWrite()) {
    const ssize_t written = ::write(terminal_.get(), rest_.data(), rest_.size());
    if (written == 0 || (written < 0 && errno == EAGAIN)) {
      break;
    }
    if (written < 0 && errno != EINTR) {
      rest_.clear();  // the terminal has gone; the next read reports it
    }
    rest_.erase(0, static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
  }
  (void)::tcflush(terminal_.get(), TCIFLUSH);
}

std::optional<std::string> Terminal::readLine() {
  if (wantsWrite()) {
    showRest();
    return std::nullopt;
  }
  std::array<char, 256> line{};
  const ssize_t length = ::read(terminal_.get(), line.data(), line.size());
  if (length < 0 && errno == EAGAIN) {
    return std::nullopt;
  }
  std::string_view text(line.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
  while (text.ends_with('\n') || text.ends_with('\r') || text.ends_with(' ')) {
    text.remove_suffix(1);
  }
  return std::string(text);
}

std::optional<SecretText> Terminal::askSecret(const std::string &question, int stopDescriptor,
                                              Error *error) {
  if (!canAsk()) {
    base::report(error, "password", 0, "there is no terminal to ask for the password");
    return std::nullopt;
  }
  return client::secretFromTerminal(terminal_.get(), question, stopDescriptor, error);
}

}  // namespace remote
