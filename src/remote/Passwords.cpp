#include "remote/Passwords.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "base/Files.hpp"
#include "remote/Console.hpp"

namespace remote {
namespace {

constexpr std::size_t kLongestPassword = 4096;
constexpr int kAttempts = 3;

SecretText firstLine(CleansedBytes content) {
  content.erase(std::ranges::find(content, '\n'), content.end());
  if (!content.empty() && content.back() == '\r') {
    content.pop_back();
  }
  return SecretText(std::move(content));
}

// Byte by byte, since what follows the line belongs to whoever reads the descriptor next.
std::optional<CleansedBytes> readLineFrom(int descriptor, Error *error) {
  CleansedBytes line;
  while (line.size() < kLongestPassword) {
    std::uint8_t byte = 0;
    const ssize_t length = ::read(descriptor, &byte, 1);
    if (length < 0 && errno == EINTR) {
      continue;
    }
    if (length < 0) {
      base::reportErrno(error, errno,
                        "cannot read the password from descriptor " + std::to_string(descriptor));
      return std::nullopt;
    }
    if (length == 0 || byte == '\n') {
      break;
    }
    line.push_back(byte);
  }
  return line;
}

}  // namespace

std::optional<std::optional<SecretText>> readGivenPassword(const PasswordOptions &options,
                                                           Error *error) {
  if (!options.file && options.descriptor < 0) {
    return std::optional<SecretText>();
  }
  auto content = options.file ? base::readFile(*options.file, kLongestPassword, error)
                              : readLineFrom(options.descriptor, error);
  if (!content) {
    return std::nullopt;
  }
  return std::optional(firstLine(std::move(*content)));
}

PasswordSource passwordSource(const std::optional<SecretText> &given, Terminal &terminal,
                              int stopDescriptor) {
  return [&given, &terminal, stopDescriptor](const std::string &file, int attempt, Error *error) {
    if (given) {
      if (attempt == 0) {
        return given;
      }
      base::report(error, "password", 0, "the given password does not fit");
      return std::optional<SecretText>();
    }
    if (attempt == kAttempts) {
      base::report(error, "password", 0, "no password fitted");
      return std::optional<SecretText>();
    }
    return terminal.askSecret("Password for " + printable(file) + ": ", stopDescriptor, error);
  };
}

}  // namespace remote
