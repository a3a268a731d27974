#include "base/Descriptor.hpp"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <climits>

namespace base {
namespace {

bool waitFor(short events, int descriptor, std::chrono::steady_clock::time_point deadline) {
  while (true) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now())
            .count();
    if (left <= 0) {
      return false;
    }
    pollfd waiting{descriptor, events, 0};
    const auto time = std::min<decltype(left)>(left, INT_MAX);
    const int ready = ::poll(&waiting, 1, static_cast<int>(time));
    if (ready > 0) {
      return (waiting.revents & POLLNVAL) == 0;
    }
    if (ready < 0 && errno != EINTR) {
      return false;
    }
  }
}

}  // namespace

bool waitToRead(int descriptor, std::chrono::steady_clock::time_point deadline) {
  return waitFor(POLLIN, descriptor, deadline);
}

bool waitToWrite(int descriptor, std::chrono::steady_clock::time_point deadline) {
  return waitFor(POLLOUT, descriptor, deadline);
}

}  // namespace base
