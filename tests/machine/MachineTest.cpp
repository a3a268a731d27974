// The daemon on a machine as it is, without a sandboxed root: a copy of this one that is written to
// memory and gone with the test. Its accounts have their passwords set and checked by PAM.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "encodings/HexString.hpp"
#include "system/OwnNetwork.hpp"
#include "system/Peer.hpp"
#include "system/Process.hpp"

namespace system_tests {
namespace {

// Runs a program to its end; what it printed.
std::string succeed(const std::string &program, const std::vector<std::string> &arguments) {
  Process process(program, arguments, "/tmp/output");
  EXPECT_EQ(process.waitForEnd(), 0) << program << ": " << process.output();
  return process.output();
}

void append(const char *path, const std::string &line) {
  std::ofstream(path, std::ios::app) << line << '\n';
}

TEST(MachineAsItIs, ChecksThePasswordThatTheClientWasGiven) {
  append("/etc/passwd", "cvnkfyvncuser:x:64001:64001::/nonexistent:/bin/bash");
  append("/etc/shadow", "cvnkfyvncuser:!:19000:0:99999:7:::");
  std::filesystem::copy_file(KEYFERRY_PROGRAMS "/sc_auth", "/usr/sbin/sc_auth",
                             std::filesystem::copy_options::overwrite_existing);
  succeed("kfyctl", {"identity", "create", "--common-name", "a copy of this machine"});
  succeed("kfyctl", {"identity", "use", "a copy of this machine"});
  succeed("sc_auth", {"pair", "--user", "root", "--replace", "--hash",
                      encodings::hexString(publicKeyHash(rsaIdentity().key))});
  Process daemon("kfyd", {}, "/tmp/daemon");
  ASSERT_TRUE(daemon.hasSaid("Listener on port 4116 (tcp) ready!")) << daemon.output();
  Peer remote = Peer::remote();
  ASSERT_TRUE(remote.authenticate(rsaIdentity()));
  const QuillMessage reply =
      remote.ask(QuillMessage::initCommandMessageCreateEphemeralUser("anybody"));
  EXPECT_TRUE(reply.status) << daemon.output();
  const Bytes password = encodings::dataFromBase64String(reply.ephemeralPassword->reveal());

  for (const auto &[typed, expected] :
       {std::pair{std::string(base::textOf(password)), 0}, {std::string("a wrong one"), 1}}) {
    // a pipe gives it what a person would type
    FILE *check = popen("pamtester login cvnkfyvncuser authenticate >/tmp/check 2>&1", "w");
    std::fprintf(check, "%s\n", typed.c_str());
    EXPECT_EQ(pclose(check) == 0, expected == 0) << typed;
  }
  EXPECT_EQ(daemon.end(SIGTERM), 128 + SIGTERM);
}

// Enters a copy of this machine: what is written goes to memory.
bool enterCopy() {
  const std::string place = "/tmp";
  if (unshare(CLONE_NEWNS) != 0 ||
      mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("copy", place.c_str(), "tmpfs", 0, "size=256m") != 0) {
    return false;
  }
  for (const char *folder : {"/upper", "/work", "/root"}) {
    mkdir((place + folder).c_str(), 0755);
  }
  const std::string root = place + "/root";
  return mount("copy", root.c_str(), "overlay", 0,
               ("lowerdir=/,upperdir=" + place + "/upper,workdir=" + place + "/work").c_str()) ==
             0 &&
         mount("/proc", (root + "/proc").c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0 &&
         mount("/dev", (root + "/dev").c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0 &&
         chroot(root.c_str()) == 0 && chdir("/") == 0;
}

}  // namespace
}  // namespace system_tests

int main(int argc, char **argv) {
  testing::InitGoogleTest(&argc, argv);
  if (testing::GTEST_FLAG(list_tests)) {
    return RUN_ALL_TESTS();
  }
  if (geteuid() != 0) {
    std::puts("[  SKIPPED ] only root can make a copy of the machine");
    return 0;
  }
  unsetenv("KFYD_ROOT");
  if (!system_tests::enterOwnNetwork() || !system_tests::enterCopy()) {
    std::perror("no copy of the machine");
    return 1;
  }
  return RUN_ALL_TESTS();
}
