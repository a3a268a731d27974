// The main of the tests of whole programs: each test runs in a network of its own, so that the
// daemon's ports are free for every one, and in a root of its own.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "base/Descriptor.hpp"
#include "fakes/TemporaryFolder.hpp"

namespace {

bool writeTo(const char *path, const std::string &text) {
  const base::Descriptor file(open(path, O_WRONLY | O_CLOEXEC));
  return write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

// Without privileges the network comes with a user namespace, in which this user is root.
bool leaveTheNetwork() {
  const auto user = std::to_string(geteuid());
  const auto group = std::to_string(getegid());
  if (geteuid() == 0) {
    return unshare(CLONE_NEWNET) == 0;
  }
  return unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0 && writeTo("/proc/self/setgroups", "deny") &&
         writeTo("/proc/self/uid_map", "0 " + user + " 1") &&
         writeTo("/proc/self/gid_map", "0 " + group + " 1");
}

bool raiseLoopback() {
  const base::Descriptor control(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq request{};
  std::strcpy(request.ifr_name, "lo");
  request.ifr_flags = IFF_UP | IFF_RUNNING;
  return ioctl(control.get(), SIOCSIFFLAGS, &request) == 0;
}

}  // namespace

int main(int argc, char **argv) {
  testing::InitGoogleTest(&argc, argv);
  if (testing::GTEST_FLAG(list_tests)) {
    return RUN_ALL_TESTS();
  }
  if (!leaveTheNetwork() || !raiseLoopback()) {
    std::perror("no network namespace");
    return 1;
  }
  const fakes::TemporaryFolder root;
  setenv("KFYD_ROOT", root.path().c_str(), /*overwrite=*/1);
  return RUN_ALL_TESTS();
}
