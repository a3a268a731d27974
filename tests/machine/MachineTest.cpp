// The daemon on a machine as it is, without a sandboxed root: a copy of this one that is written to
// memory and gone with the test. Its accounts have their passwords set and checked by PAM.

#include <sys/mount.h>

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

TEST(MachineAsItIs, ChecksThePasswordThatTheClientWasGiven) {
  succeed("/bin/sh", {"-ec",
                      "echo cvnkfyvncuser:x:64001:64001::/nonexistent:/bin/bash >>/etc/passwd\n"
                      "echo 'cvnkfyvncuser:!:19000:0:99999:7:::' >>/etc/shadow\n"
                      "cp " KEYFERRY_PROGRAMS "/sc_auth /usr/sbin"});
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

  succeed("/bin/sh", {"-ec",
                      "check() { echo \"$1\" | pamtester login cvnkfyvncuser authenticate; }\n"
                      "check \"$0\"; ! check 'a wrong one'",
                      std::string(base::textOf(password))});
  EXPECT_EQ(daemon.end(SIGTERM), 128 + SIGTERM);
}

// Enters a copy of this machine: what is written goes to memory.
bool enterCopy() {
  return unshare(CLONE_NEWNS) == 0 &&
         mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount("copy", "/tmp", "tmpfs", 0, "size=256m") == 0 && mkdir("/tmp/upper", 0755) == 0 &&
         mkdir("/tmp/work", 0755) == 0 && mkdir("/tmp/root", 0755) == 0 &&
         mount("copy", "/tmp/root", "overlay", 0,
               "lowerdir=/,upperdir=/tmp/upper,workdir=/tmp/work") == 0 &&
         mount("/proc", "/tmp/root/proc", nullptr, MS_BIND | MS_REC, nullptr) == 0 &&
         mount("/dev", "/tmp/root/dev", nullptr, MS_BIND | MS_REC, nullptr) == 0 &&
         chroot("/tmp/root") == 0 && chdir("/") == 0;
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
