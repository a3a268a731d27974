#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/Bytes.hpp"
#include "base/Secret.hpp"
#include "crypto/Identity.hpp"
#include "platform/ItemStore.hpp"
#include "platform/TokenWatcher.hpp"
#include "platform/UserDefaults.hpp"
#include "support/CertificateInfo.hpp"

// Finds identities in the keychain and on tokens, and describes them. Keeps nothing: every
// operation asks the store anew and may block on it. Identities of the keychain come before those
// of tokens, and a search for one asks no token if the keychain holds it. The contracts outlive the
// object.
class CVNKeychain {
 public:
  // One identity; null where none was found.
  using IdentityReference = std::shared_ptr<const crypto::Identity>;

  // An identity in two lines.
  struct IdentitySummary {
    std::string cn;                // common name of the certificate
    std::string sha1_fingerprint;  // SHA-1 of its DER bytes, 40 upper-case hexadecimal digits
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
  [[nodiscard]] std::vector<support::CertificateInfo> smartcardCertificateArrayFromKeychain() const;

  // Every identity, of the keychain and of tokens, without public-key hashes.
  [[nodiscard]] std::vector<support::CertificateInfo> iosCertificateArrayFromKeychain() const;

  // Every identity; nothing, with a log line, if there is none or the store fails.
  [[nodiscard]] std::optional<std::vector<IdentityReference>> keychainIdentities() const;

  // Every identity whose certificate has a common name.
  [[nodiscard]] std::vector<IdentitySummary> availableIdentityInfo() const;

 private:
  template <typename Matches>
  [[nodiscard]] IdentityReference findFirst(bool tokenOnly, const std::optional<SecretText> &pin,
                                            Matches matches) const;
  [[nodiscard]] platform::IdentityMatches searchEverywhere(
      const platform::IdentityQuery &query) const;

  platform::ItemStore &store_;
  platform::TokenWatcher &tokens_;
  platform::UserDefaults &defaults_;
};
