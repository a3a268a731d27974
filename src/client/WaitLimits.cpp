#include "client/WaitLimits.hpp"

#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>

namespace client {

bool waitFor(int descriptor, bool toWrite, const WaitLimits &limits, Error *error) {
  const auto events = static_cast<short>(toWrite ? POLLIN | POLLOUT : POLLIN);
  while (true) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(limits.deadline -
                                                                   std::chrono::steady_clock::now())
                          .count();
    // poll ignores negative descriptors
    std::array<pollfd, 2> waiting{{{descriptor, events, 0}, {limits.stopDescriptor, POLLIN, 0}}};
    const auto time = std::clamp<decltype(left)>(left, 0, INT_MAX);
    const int ready = ::poll(waiting.data(), waiting.size(), static_cast<int>(time));
    if (ready > 0 && waiting[1].revents != 0) {
      base::report(error, kErrorDomain, stopped, "stopped while waiting");
      return false;
    }
    if (ready > 0) {
      return true;
    }
    if (ready == 0 && left <= INT_MAX) {
      base::report(error, kErrorDomain, timedOut, "no answer in time");
      return false;
    }
    if (ready < 0 && errno != EINTR && errno != EAGAIN) {
      base::report(error, kErrorDomain, connectionLost, "cannot wait for the connection");
      return false;
    }
  }
}

}  // namespace client
