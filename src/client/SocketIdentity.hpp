#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <optional>

namespace client {

// Identifies a socket, to detect that its descriptor was reused: some programs close all
// descriptors, including ours, and then open files of their own.
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
