#pragma once

#include <iosfwd>
#include <string>

#include "ctl/Outcome.hpp"

namespace platform {
class ItemStore;
class TokenWatcher;
}  // namespace platform

namespace ctl {

// One run of a tool: its streams and stores, and the outcome of the chosen command. Everything
// here is borrowed.
struct Invocation {
  std::istream &input;
  std::ostream &output;  // results alone
  std::ostream &notes;   // messages that are no results, line by line
  bool inputIsTerminal = false;
  bool outputIsTerminal = false;
  platform::ItemStore *keychain = nullptr;   // null in a tool without one
  platform::TokenWatcher *tokens = nullptr;  // null in a tool that uses none
  std::string keychainReport{};              // why the keychain could not be used most recently

  bool json = false;  // results and failures as JSON
  Outcome outcome{};  // of the command that has run
};

}  // namespace ctl
