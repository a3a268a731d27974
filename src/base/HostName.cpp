#include "base/HostName.hpp"

#include <unistd.h>

#include <array>

namespace base {

std::string hostName() {
  std::array<char, 256> name{};
  (void)::gethostname(name.data(), name.size() - 1);
  return name.data();
}

}  // namespace base
