#pragma once

#include <string>

#include "ctl/Invocation.hpp"
#include "ctl/Outcome.hpp"
#include "ctl/Pairings.hpp"

namespace ctl {

// A command that pairs a key.
struct PairingCommand {
  std::string tool;       // that says what was done
  std::string line;       // all of it, for a remedy
  bool replaces = false;  // another pairing ends
};

// Pairs a key with a user of this machine's account file, instead of the key that is paired now
// only if the command says so.
[[nodiscard]] Outcome pairKey(const Pairing &wanted, const PairingCommand &command,
                              Invocation &invocation);

}  // namespace ctl
