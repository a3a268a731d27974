#include "ctl/PasswordOptions.hpp"

#include <CLI/CLI.hpp>

#include "client/SecretInput.hpp"

namespace ctl {

void PasswordOptions::addTo(CLI::App &command) {
  auto *const fileOption = command.add_option("--password-file", file, "holds the password");
  command.add_option("--password-fd", descriptor, "gives the password")
      ->excludes(fileOption)
      ->check(CLI::NonNegativeNumber);
}

std::optional<SecretText> PasswordOptions::take(const std::string &question, Error *error) const {
  if (!file.empty()) {
    return client::secretFromFile(file, error);
  }
  if (descriptor >= 0) {
    return client::secretFromDescriptor(descriptor, error);
  }
  return client::secretFromTerminal(client::openTerminal().get(), question,
                                    /*stopDescriptor=*/-1, error);
}

}  // namespace ctl
