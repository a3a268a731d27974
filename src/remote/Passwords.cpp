#include "remote/Passwords.hpp"

#include "base/DisplayText.hpp"
#include "client/SecretInput.hpp"

namespace remote {
namespace {

constexpr int kAttempts = 3;

}  // namespace

std::optional<std::optional<SecretText>> readGivenPassword(const KeyPasswordOptions &options,
                                                           Error *error) {
  if (!options.file && options.descriptor < 0) {
    return std::optional<SecretText>();
  }
  auto password = options.file ? client::secretFromFile(*options.file, error)
                               : client::secretFromDescriptor(options.descriptor, error);
  if (!password) {
    return std::nullopt;
  }
  return password;
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
    return terminal.askSecret("Password for " + base::displayText(file) + ": ", stopDescriptor,
                              error);
  };
}

}  // namespace remote
