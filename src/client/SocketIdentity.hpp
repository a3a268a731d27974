#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <optional>

namespace client {

// What tells a socket from whatever else stands under the same descriptor later: there are programs
// that close all descriptors, not only their own, and then open files of theirs.
struct SocketIdentity {
  dev_t device = 0;
  ino_t inode = 0;

  // Nothing if the descriptor is not open.
  [[nodiscard]] static std::optional<SocketIdentity> of(int descriptor) {
    struct stat status{};
    if (::fstat(descriptor, &status) != 0) {
      return std::nullopt;
    }
    return SocketIdentity{status.st_dev, status.st_ino};
  }

  friend bool operator==(const SocketIdentity &left, const SocketIdentity &right) = default;
};

}  // namespace client
