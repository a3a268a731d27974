#pragma once

#include <cstddef>
#include <list>
#include <vector>

#include "base/Secret.hpp"
#include "crypto/TlsChannel.hpp"
#include "platform/Network.hpp"

namespace platform_linux {

// What waits to be sent on a connection. Completions are called in the middle of turn() and
// lose(): whoever calls these keeps this object alive.
class TlsOutput {
 public:
  using Completion = platform::Connection::SendCompletion;

  explicit TlsOutput(crypto::TlsChannel &channel) : channel_(channel) {}

  void add(CleansedBytes unit, Completion completion);

  // What the system has not taken yet.
  [[nodiscard]] std::size_t bytes() const { return plain_ + channel_.unsentBytes(); }

  // Encrypts and sends what one turn of the loop allows, from as many units as that holds, so that
  // they leave in one send. `done`: that much has left, and with empty() all; else what to wait
  // for, or `failed`.
  [[nodiscard]] crypto::TlsChannel::Result turn();

  [[nodiscard]] bool empty() const { return units_.empty(); }

  // Completes everything with an error.
  void lose(int errorNumber);

 private:
  struct Unit {
    CleansedBytes bytes;
    std::size_t encrypted = 0;
    Completion completion;
  };

  [[nodiscard]] bool encrypt();

  crypto::TlsChannel &channel_;
  std::list<Unit> units_;            // not yet encrypted to their end
  std::size_t plain_ = 0;            // bytes in these that are not encrypted
  std::vector<Completion> leaving_;  // of units that are encrypted, not yet with the system
};

}  // namespace platform_linux
