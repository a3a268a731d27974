#pragma once

#include "system/Machine.hpp"

namespace system_tests {

// A machine whose daemon runs, and another device that holds an RSA and an EC key (rsaIdentity(),
// ecIdentity()) and is paired with it.
class CardMachine : public PairedMachine {
 public:
  CardMachine();

  // Starts kfy-remote on the other device with further arguments.
  std::unique_ptr<Process> startRemote(const std::vector<std::string> &more);
  // The same, trusting the daemon and asking nobody; waits until the card is inserted.
  std::unique_ptr<Process> startConfirmingRemote();

 protected:
  std::string fingerprint_;  // of the daemon's certificate
};

}  // namespace system_tests
