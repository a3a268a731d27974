#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace platform_linux {

// Whether a peer acknowledges what it is sent (tcp(7): SIOCOUTQ and TCP_INFO).
class Acknowledgements {
 public:
  using Clock = std::chrono::steady_clock;

  // How long the peer of `socket` has acknowledged no byte although some wait for that. Nothing if
  // none wait, neither in the socket nor, as the caller says, before it. Seen as often as it is
  // called: from one call to the next at most that much is missed.
  [[nodiscard]] std::optional<Clock::duration> missingFor(int socket, bool moreWaits,
                                                          Clock::time_point now);

 private:
  std::optional<std::uint64_t> bytes_;  // acknowledged when it was last seen to change
  Clock::time_point since_;
};

}  // namespace platform_linux
