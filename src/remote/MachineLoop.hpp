#pragma once

#include "crypto/Identity.hpp"
#include "remote/Arguments.hpp"
#include "remote/Console.hpp"
#include "remote/KeyRing.hpp"
#include "remote/StopSignal.hpp"
#include "remote/Terminal.hpp"

namespace remote {

// How a session ended.
struct LoopEnd {
  bool bySignal = false;   // else every machine was given up
  bool mayClearUp = true;  // false: a thread still runs, so the process must end at once
};

// Serves the machines of the command until a signal comes; a second one ends it without waiting for
// the machines' replies. One loop on the calling thread.
[[nodiscard]] LoopEnd serveMachines(const ConnectCommand &command, const KnownHosts &knownHosts,
                                    const KeyRing &keys, const crypto::Identity &authentication,
                                    Terminal &terminal, Console &console, const StopSignal &stop);

}  // namespace remote
