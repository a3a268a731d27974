#pragma once

#include "identity/CVNKeychain.hpp"
#include "platform/TokenWatcher.hpp"
#include "platform/UserDefaults.hpp"

namespace ctl {

// The keychain's operations on a store alone: those on passwords and the import ask no token and no
// setting, so the tools that use them have neither.
class KeychainOperations : platform::TokenWatcher, platform::UserDefaults {
 public:
  explicit KeychainOperations(platform::ItemStore &store) : keychain_(store, *this, *this) {}

  const CVNKeychain *operator->() const { return &keychain_; }

 private:
  std::vector<std::string> tokenIDs() override { return {}; }
  platform::IdentityMatches searchIdentities(const platform::IdentityQuery & /*query*/,
                                             const IsWanted & /*isWanted*/) override {
    return {};
  }
  std::optional<std::string> text(std::string_view /*domain*/, std::string_view /*key*/) override {
    return std::nullopt;
  }
  std::optional<bool> boolean(std::string_view /*domain*/, std::string_view /*key*/) override {
    return std::nullopt;
  }
  std::optional<std::int64_t> integer(std::string_view /*domain*/,
                                      std::string_view /*key*/) override {
    return std::nullopt;
  }

  CVNKeychain keychain_;
};

}  // namespace ctl
