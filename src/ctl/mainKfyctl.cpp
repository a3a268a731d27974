#include <exception>
#include <iostream>

#include "base/Root.hpp"
#include "ctl/CommandLine.hpp"
#include "ctl/Kfyctl.hpp"
#include "linux/store/SqliteItemStore.hpp"

int main(int argc, char **argv) {
  try {
    ctl::Session session = ctl::sessionOnStandardStreams();
    platform_linux::SqliteItemStore keychain(
        base::rooted("/var/lib/keyferry/keychain.db"),
        [&session](const std::string &line) { session.keychainReport = line; });
    session.keychain = &keychain;
    return ctl::runKfyctl(ctl::argumentsOf(argc, argv), session);
  } catch (const std::exception &error) {
    std::cerr << "kfyctl: error: " << error.what() << '\n';
    return ctl::exitFailed;
  }
}
