#include "identity/CVNPassword.hpp"

#include <utility>

#include "base/UTF8.hpp"

CVNPassword CVNPassword::initWithService(const std::optional<std::string> &service,
                                         const std::optional<std::string> &account,
                                         const std::optional<std::string> &group) {
  CVNPassword made;
  for (const auto &[key, text] : {std::pair{kSecAttrService, &service},
                                  {kSecAttrAccount, &account},
                                  {kSecAttrAccessGroup, &group}}) {
    if (*text) {
      made.keychainInfo[key] = **text;
    }
  }
  return made;
}

CVNKeychain::IdentityReference CVNPassword::findIdentityWithSubject(const std::string &subject,
                                                                    const CVNKeychain &keychain) {
  return keychain.findIdentityWithSubject(subject);
}

std::optional<SecretText> CVNPassword::password() const {
  const auto entry = keychainInfo.find(kSecValueData);
  const auto *const value =
      entry == keychainInfo.end() ? nullptr : std::get_if<SecretBytes>(&entry->second);
  if (value == nullptr || !base::isUTF8(value->reveal())) {
    return std::nullopt;
  }
  return SecretText(base::textOf(value->reveal()));
}

void CVNPassword::setPassword(const SecretText &password) {
  keychainInfo[kSecValueData] = SecretBytes(base::viewOf(password.reveal()));
}
