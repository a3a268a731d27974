#include "linux/network/DescriptorReserve.hpp"

#include <fcntl.h>
#include <sys/resource.h>

#include <algorithm>

#include "base/Descriptor.hpp"

namespace platform_linux {
namespace {

constexpr std::uint64_t kKeptForFiles = 64;

}  // namespace

void raiseDescriptorLimit() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) == 0) {
    limit.rlim_cur = limit.rlim_max;
    // a failure leaves the old limit, which is respected too
    (void)::setrlimit(RLIMIT_NOFILE, &limit);
  }
}

platform::Limit descriptorLimit() {
  rlimit limit{};
  (void)::getrlimit(RLIMIT_NOFILE, &limit);  // cannot fail for this process's own
  return {limit.rlim_cur, "RLIMIT_NOFILE"};
}

std::optional<platform::Limit> reachedDescriptorReserve() {
  const platform::Limit limit = descriptorLimit();
  const std::uint64_t kept = std::min(kKeptForFiles, limit.most / 4);
  // The system gives the lowest free number, so that about as many are open.
  const base::Descriptor next(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0));
  const bool isLeft = next.isOpen() && static_cast<std::uint64_t>(next.get()) < limit.most - kept;
  return isLeft ? std::nullopt : std::optional(limit);
}

}  // namespace platform_linux
