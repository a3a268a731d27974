#include "ctl/PairKey.hpp"

#include <ostream>
#include <span>

#include "base/AccountFile.hpp"
#include "base/Root.hpp"
#include "encodings/HexString.hpp"

namespace ctl {

Outcome pairKey(const Pairing &wanted, const PairingCommand &command, Invocation &invocation) {
  Error error;
  // only the account file: network users are not users of this machine
  const auto accounts = base::accountsNamed(wanted.user, base::rooted("/etc/passwd"), &error);
  if (!accounts || accounts->empty()) {
    return Failure{"no user \"" + wanted.user + "\" in the account file " +
                       base::rooted("/etc/passwd") + "; users from the network cannot be paired",
                   "cut -d: -f1 " + base::rooted("/etc/passwd")};
  }
  const auto pairings = pairingFile().read(&error);
  if (!pairings) {
    return unusablePairings(error, command.line);
  }
  const bool isOther = !pairings->empty() && (pairings->size() > 1 || pairings->front() != wanted);
  if (isOther && !command.replaces) {
    return Failure{"this machine is already paired, key " +
                       encodings::hexString(pairings->front().publicKeyHash) + " for user \"" +
                       pairings->front().user + "\", and only one key can be",
                   command.line + " --replace"};
  }
  if (!pairingFile().write(std::span(&wanted, 1), &error)) {
    return unusablePairings(error, command.line);
  }
  invocation.notes << command.tool << ": key " << encodings::hexString(wanted.publicKeyHash)
                   << " is paired with user \"" << wanted.user << "\"\n";
  return std::nullopt;
}

}  // namespace ctl
