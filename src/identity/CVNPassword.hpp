#pragma once

#include <map>
#include <optional>
#include <string>
#include <variant>

#include "base/Secret.hpp"
#include "identity/CVNKeychain.hpp"

// The description of one password item, in memory alone: it never touches the keychain.
class CVNPassword {
 public:
  // An attribute's text; the item's value in bytes.
  using Attribute = std::variant<std::string, SecretBytes>;
  using KeychainInfo = std::map<std::string, Attribute>;

  // The keys of `keychainInfo`: the keychain's own texts of its attribute keys.
  static constexpr const char *kSecAttrService = "svce";
  static constexpr const char *kSecAttrAccount = "acct";
  static constexpr const char *kSecAttrAccessGroup = "agrp";
  static constexpr const char *kSecValueData = "v_Data";

  // Each argument that is there becomes an entry of `keychainInfo`; the fields `service` and
  // `accessGroup` stay unset.
  [[nodiscard]] static CVNPassword initWithService(const std::optional<std::string> &service,
                                                   const std::optional<std::string> &account,
                                                   const std::optional<std::string> &group);

  // The same as CVNKeychain's.
  [[nodiscard]] static CVNKeychain::IdentityReference findIdentityWithSubject(
      const std::string &subject, const CVNKeychain &keychain);

  // The entry kSecValueData as UTF-8 text; nothing if there is none or it is no such text.
  [[nodiscard]] std::optional<SecretText> password() const;
  void setPassword(const SecretText &password);

  // Does nothing.
  void query() const {}

  std::optional<std::string> service;
  std::optional<std::string> accessGroup;
  KeychainInfo keychainInfo;
};
