#pragma once

#include "platform/Accounts.hpp"
#include "platform/ToolRunner.hpp"

namespace platform_linux {

// Sets passwords through the machine's own chpasswd, so that the shadow file is locked and written
// as the distribution does it: by PAM, and in a sandboxed root without it, since PAM's modules
// would be looked for inside. The right of an administrator is that of effective user id 0.
class ShadowAccounts : public platform::Accounts {
 public:
  // `tools` is borrowed.
  explicit ShadowAccounts(platform::ToolRunner &tools) : tools_(tools) {}

  [[nodiscard]] std::unique_ptr<platform::Authorization> createAuthorization(
      std::int32_t &status) override;
  [[nodiscard]] std::unique_ptr<platform::AccountIdentity> identityWithName(
      const std::string &name) override;

 private:
  platform::ToolRunner &tools_;
};

}  // namespace platform_linux
