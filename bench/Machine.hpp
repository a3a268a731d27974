#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "Child.hpp"
#include "Peer.hpp"
#include "crypto/Identity.hpp"

namespace bench {

// A key with a self-signed certificate: the card's is RSA-2048, a relay's P-256, like the one that
// kfyctl makes.
[[nodiscard]] crypto::Identity makeCard();
[[nodiscard]] crypto::Identity makeRelayIdentity();

// A root folder, prepared by scripts/bench, in which a journal and kfyd run.
class Machine {
 public:
  // Returns when kfyd accepts connections.
  explicit Machine(const std::string &kfyd);

  [[nodiscard]] const Child &daemon() const { return daemon_; }

 private:
  Child journal_ = runJournal();
  Child daemon_;
};

// Authenticates with the card's key; the first key may, whoever has it.
void authenticate(Peer &holder, const crypto::Identity &card);

// The message that inserts these certificates as a card.
[[nodiscard]] QuillMessage insertOf(const std::vector<crypto::Certificate> &certificates);

// Lets this program and its children open as many descriptors as it may.
void raiseDescriptorLimit();

}  // namespace bench
