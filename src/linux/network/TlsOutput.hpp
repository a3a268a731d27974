#pragma once

#include <cstddef>
#include <list>
#include <vector>

#include "base/Secret.hpp"
#include "crypto/TlsChannel.hpp"
#include "platform/Network.hpp"

namespace platform_linux {

// The output of a connection that waits to be sent. turn() and lose() call completions, which may
// release the connection: the caller keeps this object alive meanwhile.
class TlsOutput {
 public:
  using Completion = platform::Connection::SendCompletion;

  explicit TlsOutput(crypto::TlsChannel &channel) : channel_(channel) {}

  void add(CleansedBytes unit, Completion completion);

  // Bytes that the system has not taken yet.
  [[nodiscard]] std::size_t bytes() const { return plain_ + channel_.unsentBytes(); }

  // Encrypts and sends what one turn of the loop allows, several units in one send. `done`: that
  // much has left; if empty() too, all has. Otherwise what to wait for, or `failed`.
  [[nodiscard]] crypto::TlsChannel::Result turn();

  [[nodiscard]] bool empty() const { return units_.empty(); }

  // Completes all units with an error.
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
