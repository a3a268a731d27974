// What a person has to know or decide before a machine and this device trust each other.

#include "encodings/HexString.hpp"
#include "identity/FingerprintText.hpp"
#include "remote/Console.hpp"
#include "remote/Machine.hpp"

namespace remote {

void Machine::askForTrust(const Fingerprint &shown) {
  phase_ = Phase::trusting;
  services_.consent.ask(
      this,
      address_.name() + " is not known yet. Its certificate has the fingerprint\n  " +
          identity::fingerprintText(shown) +
          "\nwhich \"sudo kfyctl identity show\" has to show on that machine. Trust it?",
      /*inFull=*/true, [weak = weak_from_this(), attempt = attempt_, shown](Consent::Reply reply) {
        const auto self = weak.lock();
        if (!self || self->attempt_ != attempt || reply == Consent::Reply::withdrawn) {
          return;
        }
        if (reply == Consent::Reply::no) {
          self->services_.console.complain("the server at " + self->address_.name() +
                                           " is not trusted");
          return self->giveUp();
        }
        Error error;
        if (!self->services_.knownHosts.add(self->address_, shown, &error)) {
          self->services_.console.warn("the trust can't be remembered: " + error.description);
        }
        self->start();
      });
}

void Machine::sayUntrusted(const Fingerprint &shown) const {
  services_.console.complain(
      "the server at " + address_.name() +
      " is not the one that was trusted: it may have a new certificate, or somebody may be "
      "in between; nothing was sent to it");
  services_.console.warn("it shows " + identity::fingerprintText(shown));
  if (pinned_) {
    services_.console.warn("--fingerprint says " + identity::fingerprintText(*pinned_));
  } else {
    services_.console.advise(
        "on that machine: sudo kfyctl identity show, and here, only if it shows the same: " +
        services_.knownHosts.removalCommand(address_));
  }
}

void Machine::advisePairing() const {
  services_.console.advise("on that machine: sudo kfyctl pair USER " +
                           encodings::hexString(services_.authenticationKeyHash));
}

}  // namespace remote
