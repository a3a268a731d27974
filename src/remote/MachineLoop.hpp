#pragma once

#include "crypto/Identity.hpp"
#include "remote/Arguments.hpp"
#include "remote/Console.hpp"
#include "remote/KeyRing.hpp"
#include "remote/StopSignal.hpp"
#include "remote/Terminal.hpp"

namespace remote {

// How the loop ended.
struct LoopEnd {
  bool bySignal = false;   // otherwise every machine was given up
  bool isSetUp = false;    // `setup` has inserted the card
  bool mayClearUp = true;  // false: a thread still runs; the process must exit at once
};

// Serves the machines of the command on the calling thread until a signal comes. A second signal
// ends it without waiting for the machines' replies.
[[nodiscard]] LoopEnd serveMachines(const ConnectCommand &command, const KnownHosts &knownHosts,
                                    const KeyRing &keys, const crypto::Identity &authentication,
                                    Terminal &terminal, Console &console, const StopSignal &stop);

}  // namespace remote
