#include "client/SocketMark.hpp"

#include <sys/stat.h>

namespace client {

std::optional<SocketMark> SocketMark::of(int descriptor) {
  struct stat status{};
  if (::fstat(descriptor, &status) != 0) {
    return std::nullopt;
  }
  return SocketMark{status.st_dev, status.st_ino};
}

}  // namespace client
