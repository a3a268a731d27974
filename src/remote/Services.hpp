#pragma once

#include <chrono>
#include <memory>

#include "base/Bytes.hpp"
#include "crypto/Identity.hpp"
#include "remote/ConnectionAttempts.hpp"
#include "remote/Consent.hpp"
#include "remote/Console.hpp"
#include "remote/KeyRing.hpp"
#include "remote/KnownHosts.hpp"
#include "remote/LoopExecutor.hpp"
#include "remote/WorkPool.hpp"

namespace remote {

// What all machines share. Borrowed; it outlives them.
struct Services {
  const KeyRing &keys;
  const crypto::Identity &authentication;
  const Bytes &authenticationKeyHash;
  const KnownHosts &knownHosts;
  Consent &consent;
  Console &console;
  bool withoutConsent = false;  // every use of a key is allowed without a question
  WorkPool &pool;
  const std::shared_ptr<LoopExecutor> &executor;
  ConnectionAttempts &attempts;
  std::chrono::seconds reinsertion;  // see ConnectCommand
  bool isSetup = false;              // see ConnectCommand
  bool isAlone = true;               // there is only one machine, so lines need not name it
};

}  // namespace remote
