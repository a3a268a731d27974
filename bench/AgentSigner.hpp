#pragma once

#include <string>

#include "base/Bytes.hpp"
#include "base/Descriptor.hpp"

namespace bench {

// A connection to an ssh-agent (draft-miller-ssh-agent) that holds one RSA key. Failures are
// thrown.
class AgentSigner {
 public:
  explicit AgentSigner(const std::string &socketPath);

  // 32 bytes, which the agent digests with SHA-256 itself.
  void sign();

 private:
  // Sends a message and returns the content of the answer after its type, which must be this one.
  Bytes ask(ByteView message, std::uint8_t answerType);

  base::Descriptor socket_;
  Bytes request_;
};

}  // namespace bench
