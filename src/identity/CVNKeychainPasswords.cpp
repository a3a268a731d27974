// The second half of the keychain: password items and the import of PKCS #12 files.

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <utility>

#include "base/Files.hpp"
#include "identity/CVNKeychain.hpp"
#include "identity/NewIdentity.hpp"
#include "logging/CVNLog.hpp"

namespace {

using platform::PasswordName;

constexpr std::size_t kLargestPackage = 1024 * 1024;

bool isASCII(ByteView bytes) {
  return std::ranges::all_of(bytes, [](std::uint8_t byte) { return byte < 0x80; });
}

}  // namespace

SecretText CVNKeychain::randomPasswordLength(std::uint64_t length) {
  constexpr std::uint32_t kCharacters = 94;
  constexpr std::uint32_t kFirst = '!';
  CleansedBytes characters(length);
  std::ranges::generate(characters, [] {
    return static_cast<std::uint8_t>(arc4random_uniform(kCharacters) + kFirst);
  });
  return SecretText(std::move(characters));
}

SecretText CVNKeychain::randomPassword() {
  constexpr std::uint64_t kLength = 15;
  return randomPasswordLength(kLength);
}

std::optional<CVNKeychain::PasswordAttributes> CVNKeychain::attributesForService(
    const std::string &service, const std::string &account,
    const std::optional<std::string> &accessGroup, Error *error) const {
  constexpr int kKeychainError = -128;
  const platform::PasswordMatch found =
      store_.searchPassword(PasswordName{service, account, accessGroup}, /*returnData=*/true);
  if (found.status != platform::itemSuccess && found.status != platform::itemNotFound) {
    base::report(error, "CVN", kKeychainError, "");
  }
  if (found.status != platform::itemSuccess || !found.value || !found.modificationDate ||
      !isASCII(found.value->reveal())) {
    return std::nullopt;
  }
  return PasswordAttributes{SecretText(base::textOf(found.value->reveal())),
                            *found.modificationDate};
}

std::optional<SecretText> CVNKeychain::passwordForService(
    const std::string &service, const std::string &account,
    const std::optional<std::string> &accessGroup, Error *error) const {
  auto attributes = attributesForService(service, account, accessGroup, error);
  return attributes ? std::optional(std::move(attributes->password)) : std::nullopt;
}

std::optional<SecretText> CVNKeychain::passwordForAccount(
    const std::string &account, const std::optional<std::string> &accessGroup, Error *error) const {
  return passwordForService(kDefaultService, account, accessGroup, error);
}

bool CVNKeychain::setPasswordForService(const std::optional<SecretText> &password,
                                        const std::string &service, const std::string &account,
                                        const std::optional<std::string> &accessGroup) const {
  const PasswordName name{service, account, accessGroup};
  if (!password) {
    const platform::ItemStatus status = store_.deletePassword(name);
    if (status != platform::itemSuccess) {
      CVNLog("Error removing keychain %@: %i", account, static_cast<int>(status));
    }
    return status == platform::itemSuccess;
  }
  const SecretBytes value(base::viewOf(password->reveal()));
  if (!isASCII(value.reveal())) {
    CVNLog("password of %@ not stored: it holds a character outside ASCII", account);
    return false;
  }
  platform::ItemStatus status = store_.searchPassword(name, /*returnData=*/false).status;
  if (status == platform::itemNotFound) {
    status = store_.addPassword(name, value);
    if (status != platform::itemSuccess) {
      CVNLog("Add Error: %i", static_cast<int>(status));
    }
  } else if (status == platform::itemSuccess) {
    status = store_.updatePassword(name, value);
    if (status != platform::itemSuccess) {
      CVNLog("Update Error: %i", static_cast<int>(status));
    }
  } else {
    CVNLog("unknown result");
  }
  return status == platform::itemSuccess;
}

bool CVNKeychain::setPasswordForAccount(const std::optional<SecretText> &password,
                                        const std::string &account,
                                        const std::optional<std::string> &accessGroup) const {
  return setPasswordForService(password, kDefaultService, account, accessGroup);
}

void CVNKeychain::deletePasswordForService(const std::string &service, const std::string &account,
                                           const std::optional<std::string> &accessGroup) const {
  static_cast<void>(
      setPasswordForService(/*password=*/std::nullopt, service, account, accessGroup));
}

void CVNKeychain::deletePasswordForAccount(const std::string &account,
                                           const std::optional<std::string> &accessGroup) const {
  static_cast<void>(setPasswordForAccount(/*password=*/std::nullopt, account, accessGroup));
}

CVNKeychain::ImportResult CVNKeychain::importNewP12AtURL(const std::string &url,
                                                         const SecretText &password) const {
  const auto file = base::readFile(url, kLargestPackage);
  const auto content = file ? crypto::readPkcs12(*file, &password) : std::nullopt;
  const ImportResult result = content ? importPackage(*content) : importUnreadable;
  if (result == importDone && ::unlink(url.c_str()) != 0) {
    CVNLog("imported file %@ is still there, with its keys: %@", url,
           std::generic_category().message(errno));
  }
  return result;
}

CVNKeychain::ImportResult CVNKeychain::importPackage(const crypto::Pkcs12Content &content,
                                                     std::vector<Imported> *imported) const {
  const auto identities = crypto::identitiesIn(content);
  for (const std::optional<crypto::Identity> &identity : identities) {
    if (!identity) {
      CVNLog("SecIdentityCopyPrivateKey error");
      return importUnreadable;
    }
    const ImportResult result = importIdentity(*identity, imported);
    if (result != importDone) {
      return result;
    }
  }
  return identities.empty() ? importUnreadable : importDone;
}

CVNKeychain::ImportResult CVNKeychain::importIdentity(const crypto::Identity &identity,
                                                      std::vector<Imported> *imported) const {
  constexpr std::size_t kMostBytes = 2048 / 8;
  if (identity.key.publicKey().sizeInBytes() > kMostBytes) {
    return importKeyTooLarge;
  }
  const platform::IdentityRecord record =
      identity::describeNew(identity, identity.certificate.commonName());
  const platform::ItemStatus status = store_.addIdentity(record, /*accessGroup=*/std::nullopt);
  if (status != platform::itemSuccess && status != platform::itemDuplicate) {
    return importNotAdded;
  }
  if (imported != nullptr) {
    imported->push_back({record.reference, status == platform::itemDuplicate});
  }
  return importDone;
}
