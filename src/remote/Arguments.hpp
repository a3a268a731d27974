#pragma once

#include <chrono>
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

// How long a card goes unused before it is inserted again. Nothing tells a remote client that the
// end of somebody else's connection has withdrawn its card, and an unused one may be a withdrawn
// one. A minute is what a user waits for before looking for a fault.
inline constexpr std::chrono::seconds kReinsertion{60};

// `kfy-remote connect`
struct ConnectCommand {
  std::vector<Address> machines;           // at least one
  std::optional<Fingerprint> fingerprint;  // only with a single machine
  bool withoutConsent = false;
  std::chrono::seconds reinsertion = kReinsertion;  // zero: never
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
