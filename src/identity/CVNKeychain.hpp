#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/Bytes.hpp"
#include "base/Error.hpp"
#include "base/Secret.hpp"
#include "crypto/Identity.hpp"
#include "encodings/CertificateInfo.hpp"
#include "platform/ItemStore.hpp"
#include "platform/TokenWatcher.hpp"
#include "platform/UserDefaults.hpp"

// Finds identities in the keychain and on tokens, and describes them; reads, writes and deletes
// password items; imports PKCS #12 files. Keeps nothing: every operation asks the store anew and
// may block on it. Identities of the keychain come before those of tokens, and a search for one
// asks no token if the keychain holds it. The contracts outlive the object.
class CVNKeychain {
 public:
  // One identity; null where none was found.
  using IdentityReference = std::shared_ptr<const crypto::Identity>;

  // A summary of an identity.
  struct IdentitySummary {
    std::string cn;                // common name of the certificate
    std::string sha1_fingerprint;  // SHA-1 of its DER bytes, 40 upper-case hexadecimal digits
  };

  // A password item: its value and when it was written.
  struct PasswordAttributes {
    SecretText password;
    std::chrono::system_clock::time_point modifiedDate;
  };

  // The service of items that are named by their account alone.
  static constexpr const char *kDefaultService = "com.corvane.hdq.apns";

  // The result of an import.
  enum ImportResult : std::int32_t {
    importDone = 0,
    importUnreadable = -1,   // the file or a private key in it could not be read
    importKeyTooLarge = -2,  // a key of more than 2048 bits
    importNotAdded = -3,     // the store refused an identity
  };

  // An identity that an import found or put into the keychain.
  struct Imported {
    IdentityReference identity;
    bool wasThere = false;
  };

  CVNKeychain(platform::ItemStore &store, platform::TokenWatcher &tokens,
              platform::UserDefaults &defaults)
      : store_(store), tokens_(tokens), defaults_(defaults) {}

  // The first identity whose certificate has this SHA-1 digest; of tokens only if `tokenOnly`. An
  // empty PIN is no PIN.
  [[nodiscard]] IdentityReference findIdentityWithSHA1Hash(
      ByteView hash, bool tokenOnly, const std::optional<SecretText> &pin) const;

  // The first identity whose label is the name in lower case: a label that holds a capital never
  // matches.
  [[nodiscard]] IdentityReference findIdentityWithSubjectName(
      const std::string &name, bool tokenOnly, const std::optional<SecretText> &pin) const;

  // The first token identity whose public key has this hash.
  [[nodiscard]] IdentityReference findIdentityWithPubKeyHash(
      ByteView hash, const std::optional<SecretText> &pin) const;

  // The SHA-1 digest of the exported public key of a token identity's certificate; nothing if any
  // step gives nothing.
  [[nodiscard]] std::optional<Bytes> publicKeyHashForCertificateWithSHA1Hash(
      ByteView hash, const std::optional<SecretText> &pin) const;

  // The identity whose certificate's subject contains the text; null unless it is exactly one.
  [[nodiscard]] IdentityReference findIdentityWithSubject(const std::string &subject) const;

  // Every identity on every token present, with its public-key hash.
  [[nodiscard]] std::vector<encodings::CertificateInfo> smartcardCertificateArrayFromKeychain()
      const;

  // Every identity, of the keychain and of tokens, without public-key hashes.
  [[nodiscard]] std::vector<encodings::CertificateInfo> iosCertificateArrayFromKeychain() const;

  // Every identity; nothing, with a log line, if there is none or the store fails.
  [[nodiscard]] std::optional<std::vector<IdentityReference>> keychainIdentities() const;

  // Every identity whose certificate has a common name.
  [[nodiscard]] std::vector<IdentitySummary> availableIdentityInfo() const;

  // Characters drawn evenly from the 94 that ASCII prints, the space left out.
  [[nodiscard]] static SecretText randomPasswordLength(std::uint64_t length);
  // 15 of them.
  [[nodiscard]] static SecretText randomPassword();

  // Of all password items only those that synchronise are seen. `accessGroup` nothing: the items
  // without a group. Nothing if there is no such item or its value is not ASCII; nothing and *error
  // with the domain "CVN" and the code -128 if the store fails.
  [[nodiscard]] std::optional<PasswordAttributes> attributesForService(
      const std::string &service, const std::string &account,
      const std::optional<std::string> &accessGroup, Error *error = nullptr) const;
  [[nodiscard]] std::optional<SecretText> passwordForService(
      const std::string &service, const std::string &account,
      const std::optional<std::string> &accessGroup, Error *error = nullptr) const;
  [[nodiscard]] std::optional<SecretText> passwordForAccount(
      const std::string &account, const std::optional<std::string> &accessGroup,
      Error *error = nullptr) const;

  // Adds the item or gives it another value; without a password deletes it. False, with a log line,
  // if the store refuses, there was none to delete, or the password is not ASCII; what was stored
  // then stays.
  [[nodiscard]] bool setPasswordForService(const std::optional<SecretText> &password,
                                           const std::string &service, const std::string &account,
                                           const std::optional<std::string> &accessGroup) const;
  [[nodiscard]] bool setPasswordForAccount(const std::optional<SecretText> &password,
                                           const std::string &account,
                                           const std::optional<std::string> &accessGroup) const;

  // The same without a password; a failure is told by the log line alone.
  void deletePasswordForService(const std::string &service, const std::string &account,
                                const std::optional<std::string> &accessGroup) const;
  void deletePasswordForAccount(const std::string &account,
                                const std::optional<std::string> &accessGroup) const;

  // Adds every identity of a PKCS #12 file of at most 1 MiB to the keychain, in the order of the
  // file's keys, labelled with the common name of its certificate; one that is there already is as
  // good. Then deletes the file. On a failure the file stays, and so do the identities added before
  // it. `url` is a path, used as given. An empty password also stands for none.
  [[nodiscard]] ImportResult importNewP12AtURL(const std::string &url,
                                               const SecretText &password) const;

  // The same for a package that is open: nothing is derived again, and no file is touched. What
  // the keychain holds of it now is added to `imported`, also on a failure.
  [[nodiscard]] ImportResult importPackage(const crypto::Pkcs12Content &content,
                                           std::vector<Imported> *imported = nullptr) const;

 private:
  template <typename Matches>
  [[nodiscard]] IdentityReference findFirst(bool tokenOnly, const std::optional<SecretText> &pin,
                                            Matches matches) const;
  [[nodiscard]] platform::IdentityMatches searchEverywhere(
      const platform::IdentityQuery &query) const;

  [[nodiscard]] ImportResult importIdentity(const crypto::Identity &identity,
                                            std::vector<Imported> *imported) const;

  platform::ItemStore &store_;
  platform::TokenWatcher &tokens_;
  platform::UserDefaults &defaults_;
};
