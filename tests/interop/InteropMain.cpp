// The main of the tests with other people's programs: a network, a root and a view of the file
// system of its own, in which /run is empty and p11-kit knows one module, ours.

#include <gtest/gtest.h>
#include <sys/mount.h>

#include "fakes/TemporaryFolder.hpp"
#include "system/OwnNetwork.hpp"

namespace {

constexpr const char *kModules = "/usr/share/p11-kit/modules";

bool enterOwnView() {
  if (unshare(CLONE_NEWNS) != 0 ||
      mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("tmpfs", "/run", "tmpfs", 0, "mode=0755") != 0 ||
      mount("tmpfs", kModules, "tmpfs", 0, "mode=0755") != 0) {
    std::perror("no mount namespace");
    return false;
  }
  std::filesystem::create_directory("/run/sshd");
  std::ofstream(std::string(kModules) + "/kfy-pkcs11.module")
      << "module: " KEYFERRY_MODULE "\ncritical: no\ntrust-policy: no\n";
  return true;
}

}  // namespace

int main(int argc, char **argv) {
  testing::InitGoogleTest(&argc, argv);
  if (testing::GTEST_FLAG(list_tests)) {
    return RUN_ALL_TESTS();
  }
  if (!system_tests::enterOwnNetwork() || !enterOwnView()) {
    return 1;
  }
  const fakes::TemporaryFolder root;
  setenv("KFYD_ROOT", root.path().c_str(), /*overwrite=*/1);
  setenv("HOME", (root.path() + "/home").c_str(), /*overwrite=*/1);
  return RUN_ALL_TESTS();
}
