#include "system/OwnNetwork.hpp"

#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>

#include "base/Descriptor.hpp"

namespace system_tests {
namespace {

// Without privileges the network comes with a user namespace, in which this user is root.
bool leaveTheNetwork() {
  const auto user = std::to_string(geteuid());
  const auto group = std::to_string(getegid());
  const auto writeTo = [](const char *path, const std::string &text) {
    return (std::ofstream(path) << text << std::flush).good();
  };
  if (geteuid() == 0) {
    return unshare(CLONE_NEWNET) == 0;
  }
  return unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0 && writeTo("/proc/self/setgroups", "deny") &&
         writeTo("/proc/self/uid_map", "0 " + user + " 1") &&
         writeTo("/proc/self/gid_map", "0 " + group + " 1");
}

}  // namespace

bool setLoopback(bool isUp) {
  const base::Descriptor control(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq request{};
  std::strcpy(request.ifr_name, "lo");
  request.ifr_flags = static_cast<short>(isUp ? IFF_UP | IFF_RUNNING : 0);
  return ioctl(control.get(), SIOCSIFFLAGS, &request) == 0;
}

bool enterOwnNetwork() {
  if (!leaveTheNetwork() || !setLoopback(/*isUp=*/true)) {
    std::perror("no network namespace");
    return false;
  }
  return true;
}

}  // namespace system_tests
