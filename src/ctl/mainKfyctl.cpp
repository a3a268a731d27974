#include <exception>
#include <iostream>

#include "base/DisplayText.hpp"
#include "base/Root.hpp"
#include "ctl/CommandLine.hpp"
#include "ctl/Kfyctl.hpp"
#include "linux/store/SqliteItemStore.hpp"
#include "linux/tokens/P11TokenWatcher.hpp"

int main(int argc, char **argv) {
  try {
    ctl::Invocation invocation = ctl::sessionOnStandardStreams();
    platform_linux::SqliteItemStore keychain(
        base::rooted("/var/lib/keyferry/keychain.db"),
        [&invocation](const std::string &line) { invocation.keychainReport = line; });
    platform_linux::P11TokenWatcher tokens(
        [&invocation](const std::string &line) {
          invocation.notes << "kfyctl: " << base::displayText(line) << '\n';
        },
        platform_linux::P11TokenWatcher::moduleFolderOfRoot());
    invocation.keychain = &keychain;
    invocation.tokens = &tokens;
    return ctl::runKfyctl(ctl::argumentsOf(argc, argv), invocation);
  } catch (const std::exception &error) {
    std::cerr << "kfyctl: error: " << base::displayText(error.what()) << '\n';
    return ctl::exitFailed;
  }
}
