#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "linux/tokens/Module.hpp"
#include "platform/TokenWatcher.hpp"

namespace platform_linux {

// Finds tokens through this machine's PKCS #11 modules. Each call loads the modules and unloads
// them afterwards; those whose keys are still owned stay loaded. If the key of a wanted record is
// hidden because no PIN was given, the search reports a line.
class P11TokenWatcher : public platform::TokenWatcher {
 public:
  // `report` receives lines about unusable modules, tokens and keys; from the keys that were found
  // also later, on the thread that uses them. `moduleFolder`: see startModules.
  P11TokenWatcher(Report report, std::optional<std::string> moduleFolder);

  // The folder that stands for p11-kit's configuration where the whole system runs in a sandboxed
  // root; nothing where it does not.
  [[nodiscard]] static std::optional<std::string> moduleFolderOfRoot();

  [[nodiscard]] std::vector<std::string> tokenIDs() override;
  [[nodiscard]] platform::IdentityMatches searchIdentities(const platform::IdentityQuery &query,
                                                           const IsWanted &isWanted) override;

 private:
  std::mutex mutex_;  // held during an operation
  Report report_;
  std::optional<std::string> moduleFolder_;
};

}  // namespace platform_linux
