#pragma once

#include <gmock/gmock.h>

#include "base/Root.hpp"
#include "ctl/Kfyctl.hpp"
#include "ctl/ScAuth.hpp"
#include "fakes/TemporaryFolder.hpp"
#include "linux/store/SqliteItemStore.hpp"
#include "linux/tokens/P11TokenWatcher.hpp"

// The root of this process, a folder of its own. The first call must come before anything else asks
// for the root, which is read once.
inline const fakes::TemporaryFolder &sandboxedRoot() {
  static const fakes::TemporaryFolder folder;
  static const bool isSet = ::setenv("KFYD_ROOT", folder.path().c_str(), 1) == 0;
  // else the tools would work on this very machine
  if (!isSet || base::root() != folder.path()) {
    throw std::logic_error("the root was read before it was set");
  }
  return folder;
}

// A test of the tools, in a root that holds two accounts and nothing else.
class Tools : public testing::Test {
 protected:
  Tools() {
    for (const auto &entry : std::filesystem::directory_iterator(sandboxedRoot().path())) {
      std::filesystem::remove_all(entry.path());
    }
    std::filesystem::create_directories(sandboxedRoot() / "etc");
    sandboxedRoot().write("etc/passwd",
                          "ada:x:1000:1000::/:/bin/sh\njörg o'neil:x:1001:1001::/:\n");
  }
};

// What a run of a tool came to.
struct ToolRun {
  int status;
  std::string output;
  std::string notes;
};

inline ToolRun runTool(const std::function<int(ctl::Invocation &)> &tool,
                       const std::string &typed = "") {
  std::istringstream input(typed);
  std::ostringstream output;
  std::ostringstream notes;
  ctl::Invocation invocation{input, output, notes};
  platform_linux::SqliteItemStore keychain(
      base::rooted("/var/lib/keyferry/keychain.db"),
      [&](const std::string &line) { invocation.keychainReport = line; });
  platform_linux::P11TokenWatcher tokens([&](const std::string &line) { notes << line << '\n'; },
                                         platform_linux::P11TokenWatcher::moduleFolderOfRoot());
  invocation.keychain = &keychain;
  invocation.tokens = &tokens;
  const int status = tool(invocation);
  return {status, output.str(), notes.str()};
}

inline ToolRun kfyctl(const std::vector<std::string> &arguments, const std::string &typed = "") {
  return runTool([&](ctl::Invocation &invocation) { return ctl::runKfyctl(arguments, invocation); },
                 typed);
}

inline ToolRun scAuth(const std::vector<std::string> &arguments) {
  return runTool(
      [&](ctl::Invocation &invocation) { return ctl::runScAuth(arguments, invocation); });
}
