#include "system/Machine.hpp"

#include <sys/mount.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "base/Root.hpp"
#include "encodings/HexString.hpp"
#include "system/OwnNetwork.hpp"

namespace system_tests {

namespace fs = std::filesystem;

Machine::Machine() {
  static const bool isAlone = enterOwnNetwork();
  if (!isAlone) {
    throw std::runtime_error("the daemon's ports may be taken");
  }
  write("/etc/passwd",
        "root:x:0:0::/root:/bin/sh\nann:x:1000:1000::/:/bin/sh\n"
        "cvnkfyvncuser:x:1001:1001::/:/bin/bash\n");
  write("/etc/shadow", "root:*:19000::::::\ncvnkfyvncuser:!:19000:0:99999:7:::\n", 0640);
  for (const char *folder : {"/tmp", "/var/log", "/usr/sbin", "/other-device"}) {
    fs::create_directories(at(folder));
  }
  fs::create_symlink(KEYFERRY_PROGRAMS "/sc_auth", at("/usr/sbin/sc_auth"));
}

Machine::~Machine() {
  if (daemon) {
    EXPECT_EQ(daemon->end(SIGTERM), 128 + SIGTERM);
  }
  EXPECT_FALSE(HasFailure()) << "unified log:\n"
                             << read("/var/log/unified.log") << "daemon:\n"
                             << (daemon ? daemon->output() : "");
  if (!disk_.empty()) {
    umount2(disk_.c_str(), MNT_DETACH);
  }
  fs::remove_all(base::root());
}

std::string Machine::at(const std::string &path) {
  return base::rooted(path);
}

void Machine::write(const std::string &path, const std::string &content, unsigned mode) {
  fs::create_directories(fs::path(at(path)).parent_path());
  std::ofstream(at(path)) << content;
  chmod(at(path).c_str(), mode);
}

std::string Machine::read(const std::string &path) {
  std::ifstream file(at(path));
  return {std::istreambuf_iterator<char>(file), {}};
}

bool Machine::isMarkerThere() {
  return fs::exists(at("/tmp/scinsert"));
}

void Machine::mountDisk(const std::string &folder, const char *options) {
  fs::create_directories(at(folder));
  if (unshare(CLONE_NEWNS) != 0 ||
      mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("small", at(folder).c_str(), "tmpfs", 0, options) != 0) {
    GTEST_SKIP() << "no mount namespace: " << std::strerror(errno);
  }
  disk_ = at(folder);
}

std::unique_ptr<Process> Machine::start(const std::string &program,
                                        const std::vector<std::string> &arguments) {
  ++started_;
  return std::make_unique<Process>(program, arguments,
                                   at("/var/log/output-" + std::to_string(started_)));
}

Outcome Machine::run(const std::string &program, const std::vector<std::string> &arguments) {
  const auto process = start(program, arguments);
  const int status = process->waitForEnd();
  return {status, process->output()};
}

std::string Machine::succeed(const std::string &program,
                             const std::vector<std::string> &arguments) {
  const Outcome outcome = run(program, arguments);
  EXPECT_EQ(outcome.status, 0) << program << ": " << outcome.output;
  return outcome.output;
}

void Machine::pair(const std::string &hash) {
  succeed("sc_auth", {"pair", "--user", "ann", "--hash", hash, "--replace"});
}

bool Machine::hasLogged(const std::string &text) const {
  return eventually([&] { return read("/var/log/unified.log").find(text) != std::string::npos; });
}

PairedMachine::PairedMachine() {
  succeed("kfyctl", {"identity", "create", "--common-name", "Test Machine"});
  succeed("kfyctl", {"identity", "use", "Test Machine"});
  pair(encodings::hexString(publicKeyHash(rsaIdentity().key)));
}

void Machine::startDaemon() {
  daemon = start("kfyd", {});
  ASSERT_TRUE(daemon->hasSaid("Listener on port 4116 (tcp) ready!")) << daemon->output();
  ASSERT_TRUE(daemon->hasSaid("Listener on port 4117 (tcp) ready!")) << daemon->output();
}

}  // namespace system_tests
