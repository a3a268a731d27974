#pragma once

#include <string>

#include "ctl/Invocation.hpp"
#include "ctl/Outcome.hpp"
#include "ctl/Pairings.hpp"

namespace ctl {

// The file of pairings on this system.
[[nodiscard]] PairingFile pairingFile();

// The failure for a file of pairings that could not be read or written.
[[nodiscard]] Failure unusablePairings(const Error &error, const std::string &command);

struct PairingStep {
  bool replaces = false;  // another pairing ends
  std::string tool;       // that says what was done
  std::string command;    // the whole command, for a remedy
};

// Pairs a key with a user of this machine's account file, instead of the key that is paired now
// only if the step says so.
[[nodiscard]] Outcome pairKey(const Pairing &wanted, const PairingStep &step,
                              Invocation &invocation);

}  // namespace ctl
