#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "linux/tokens/Module.hpp"
#include "platform/TokenWatcher.hpp"

namespace platform_linux {

// Tokens through the PKCS #11 modules of this machine. Modules are loaded for each call and let go
// after it; those whose keys somebody holds stay. A search of which the wanted record's key is
// hidden, for want of a PIN, says so in a line.
class P11TokenWatcher : public platform::TokenWatcher {
 public:
  // `report` gets lines about modules, tokens and keys that can't be used, also later from keys
  // that were found, on whichever thread uses them. `moduleFolder`: see startModules.
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
