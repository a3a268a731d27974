#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace platform_linux {

// Whether a peer acknowledges what it is sent (tcp(7): SIOCOUTQ and TCP_INFO).
class Acknowledgements {
 public:
  using Clock = std::chrono::steady_clock;

  // How long the peer of `socket` has acknowledged no byte although some wait for it. Nothing if no
  // bytes wait, neither in the socket nor, as `moreWaits` says, before it. A change is noticed at
  // the next call.
  [[nodiscard]] std::optional<Clock::duration> missingFor(int socket, bool moreWaits,
                                                          Clock::time_point now);

 private:
  std::optional<std::uint64_t> bytes_;  // acknowledged at the last change
  Clock::time_point since_;
};

}  // namespace platform_linux
