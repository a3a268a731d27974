#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "remote/Address.hpp"
#include "remote/Console.hpp"
#include "remote/KnownHosts.hpp"
#include "remote/NewKey.hpp"
#include "remote/Passwords.hpp"

namespace remote {

// `kfy-remote keys`
struct KeysCommand {
  bool asJSON = false;
};

// How long a card may be unused before it is inserted again. The end of somebody else's connection
// withdraws the card, and nothing tells the remote client. So an unused card may be a withdrawn
// one. A user waits about a minute before looking for a fault.
inline constexpr std::chrono::seconds kReinsertion{60};

// `kfy-remote connect`, and `kfy-remote setup`, which ends when the card was inserted once.
struct ConnectCommand {
  bool isSetup = false;                    // then there is a single machine
  std::vector<Address> machines;           // at least one
  std::optional<Fingerprint> fingerprint;  // only with a single machine
  bool withoutConsent = false;
  std::chrono::seconds reinsertion = kReinsertion;  // zero: never
};

// `kfy-remote password`
struct PasswordCommand {
  Address machine;
  std::optional<Fingerprint> fingerprint;  // otherwise the known hosts decide
  bool asJSON = false;
};

// `kfy-remote key new`
struct NewKeyCommand {
  std::string file;  // by default the card key's in this program's folder
  NewKeyType type = NewKeyType::p256;
  std::string name;  // the certificate's common name; by default of the owner
};

struct Arguments {
  std::string home;  // this program's folder
  std::vector<std::string> keyFiles;
  std::vector<std::string> labels;  // for the keys, in order; may be fewer
  KeyPasswordOptions passwords;
  std::variant<KeysCommand, ConnectCommand, PasswordCommand, NewKeyCommand> command;
};

// The arguments of the command line. An exit status instead if nothing is left to do: help, version
// or an error was printed.
[[nodiscard]] std::variant<Arguments, int> readArguments(int count, const char *const *arguments,
                                                         Console &console);

}  // namespace remote
