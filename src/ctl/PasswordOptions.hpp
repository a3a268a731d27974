#pragma once

#include <optional>
#include <string>

#include "base/Error.hpp"
#include "base/Secret.hpp"

namespace CLI {  // NOLINT(readability-identifier-naming): the parser library's own name
class App;
}

namespace ctl {

// Where a command takes a password from. Never an argument: other users can see those.
struct PasswordOptions {
  std::string file;
  int descriptor = -1;

  // Adds --password-file and --password-fd, which are filled in when the command is chosen.
  void addTo(CLI::App &command);

  [[nodiscard]] bool isGiven() const { return !file.empty() || descriptor >= 0; }

  // Reads the password from the given source, otherwise asks at the terminal.
  [[nodiscard]] std::optional<SecretText> take(const std::string &question,
                                               Error *error = nullptr) const;
};

}  // namespace ctl
