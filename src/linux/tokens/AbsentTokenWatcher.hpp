#pragma once

#include <string>
#include <vector>

#include "platform/TokenWatcher.hpp"

namespace platform_linux {

// The token watcher of a machine without smart-card tokens.
class AbsentTokenWatcher : public platform::TokenWatcher {
 public:
  [[nodiscard]] std::vector<std::string> tokenIDs() override { return {}; }
  [[nodiscard]] platform::IdentityMatches searchIdentities(
      const platform::IdentityQuery & /*query*/, const IsWanted & /*isWanted*/) override {
    return {};
  }
};

}  // namespace platform_linux
