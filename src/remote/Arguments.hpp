#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "remote/Address.hpp"
#include "remote/Console.hpp"
#include "remote/KnownHosts.hpp"
#include "remote/Passwords.hpp"

namespace remote {

// `kfy-remote keys`
struct KeysCommand {
  bool asJSON = false;
};

// `kfy-remote connect`
struct ConnectCommand {
  std::vector<Address> machines;           // at least one
  std::optional<Fingerprint> fingerprint;  // only with a single machine
  bool withoutConsent = false;
};

// `kfy-remote password`
struct PasswordCommand {
  Address machine;
  std::optional<Fingerprint> fingerprint;  // without one the known hosts tell
  bool asJSON = false;
};

struct Arguments {
  std::string home;  // this program's folder
  std::vector<std::string> keyFiles;
  std::vector<std::string> labels;  // for the keys, in order; may be fewer
  PasswordOptions passwords;
  std::variant<KeysCommand, ConnectCommand, PasswordCommand> command;
};

// What stands on the command line, or the exit status if that is all to do: help and version were
// printed, or the fault was.
[[nodiscard]] std::variant<Arguments, int> readArguments(int count, const char *const *arguments,
                                                         Console &console);

}  // namespace remote
