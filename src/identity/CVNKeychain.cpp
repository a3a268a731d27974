#include "identity/CVNKeychain.hpp"

#include <algorithm>

#include "base/LowerCase.hpp"
#include "encodings/HexString.hpp"
#include "identity/QueryWithAttributes.hpp"
#include "logging/CVNLog.hpp"
#include "settings/Settings.hpp"

namespace {

using encodings::CertificateInfo;
using platform::IdentityQuery;
using platform::IdentityRecord;

std::string textForm(const std::vector<std::string> &texts) {
  std::string form = "(";
  for (const std::string &text : texts) {
    form += (form.size() > 1 ? ", " : "") + text;
  }
  return form + ")";
}

bool isAnswer(platform::ItemStatus status) {
  return status == platform::itemSuccess || status == platform::itemNotFound;
}

// Joins the results of keychain and tokens. It is no failure if one of the two finds nothing.
platform::ItemStatus combined(platform::ItemStatus inKeychain, platform::ItemStatus onTokens) {
  if (!isAnswer(inKeychain) || onTokens == platform::itemNotFound) {
    return inKeychain;
  }
  return onTokens;
}

std::optional<Bytes> hashOfKey(const crypto::Certificate &certificate) {
  const auto key = certificate.publicKey();
  return key ? key->hash() : std::nullopt;
}

CertificateInfo describe(const IdentityRecord &record) {
  CertificateInfo info;
  info.certificate = encodings::base64EncodeBytes(record.reference->certificate.der(),
                                                  /*separateLines=*/false);
  info.canSign = record.canSign;
  info.canDecrypt = record.canDecrypt;
  info.canUnwrap = record.canUnwrap;
  info.label = record.label.value_or("");
  return info;
}

CertificateInfo describeWithKeyHash(const IdentityRecord &record) {
  CertificateInfo info = describe(record);
  const std::optional<Bytes> hash =
      record.publicKeyHash ? record.publicKeyHash : hashOfKey(record.reference->certificate);
  info.publicKeyHash = encodings::hexString(hash.value_or(Bytes{}));
  return info;
}

}  // namespace

template <typename Matches>
CVNKeychain::IdentityReference CVNKeychain::findFirst(bool tokenOnly,
                                                      const std::optional<SecretText> &pin,
                                                      Matches matches) const {
  IdentityQuery query = identity::queryWithAttributes();
  if (tokenOnly) {
    query.accessGroup = platform::kTokenAccessGroup;
  }
  if (pin && !pin->empty()) {
    CVNLogDebug("using PIN in LAContext");
    query.pin = &*pin;
  }
  const auto firstOf = [&](const platform::IdentityMatches &found) {
    const auto first = std::ranges::find_if(found.records, matches);
    return first == found.records.end() ? nullptr : first->reference;
  };
  platform::IdentityMatches inKeychain;
  if (!tokenOnly) {
    inKeychain = store_.searchIdentities(query);
    if (IdentityReference found = firstOf(inKeychain)) {
      return found;
    }
  }
  // Tokens come last: they run other vendors' code in this process.
  platform::IdentityMatches onTokens;
  if (isAnswer(inKeychain.status)) {
    onTokens = tokens_.searchIdentities(query, matches);
  }
  if (combined(inKeychain.status, onTokens.status) != platform::itemSuccess) {
    CVNLog("SecIdentityCopyCertificate error");
    return nullptr;
  }
  return firstOf(onTokens);
}

platform::IdentityMatches CVNKeychain::searchEverywhere(const IdentityQuery &query) const {
  platform::IdentityMatches found = store_.searchIdentities(query);
  if (!isAnswer(found.status)) {
    return found;
  }
  platform::IdentityMatches onTokens = tokens_.searchIdentities(query, /*isWanted=*/nullptr);
  found.status = combined(found.status, onTokens.status);
  std::ranges::move(onTokens.records, std::back_inserter(found.records));
  if (found.status != platform::itemSuccess) {
    found.records.clear();  // both are one query, which has failed
  }
  return found;
}

CVNKeychain::IdentityReference CVNKeychain::findIdentityWithSHA1Hash(
    ByteView hash, bool tokenOnly, const std::optional<SecretText> &pin) const {
  return findFirst(tokenOnly, pin, [&](const IdentityRecord &record) {
    return base::equal(record.reference->certificate.sha1(), hash);
  });
}

CVNKeychain::IdentityReference CVNKeychain::findIdentityWithSubjectName(
    const std::string &name, bool tokenOnly, const std::optional<SecretText> &pin) const {
  const std::string lowered = base::lowerCase(name);
  return findFirst(tokenOnly, pin,
                   [&](const IdentityRecord &record) { return record.label == lowered; });
}

CVNKeychain::IdentityReference CVNKeychain::findIdentityWithPubKeyHash(
    ByteView hash, const std::optional<SecretText> &pin) const {
  return findFirst(/*tokenOnly=*/true, pin, [&](const IdentityRecord &record) {
    return record.publicKeyHash && base::equal(*record.publicKeyHash, hash);
  });
}

std::optional<Bytes> CVNKeychain::publicKeyHashForCertificateWithSHA1Hash(
    ByteView hash, const std::optional<SecretText> &pin) const {
  const IdentityReference found = findIdentityWithSHA1Hash(hash, /*tokenOnly=*/true, pin);
  return found ? hashOfKey(found->certificate) : std::nullopt;
}

CVNKeychain::IdentityReference CVNKeychain::findIdentityWithSubject(
    const std::string &subject) const {
  IdentityQuery query;
  query.subjectContains = subject;
  const platform::IdentityMatches found = searchEverywhere(query);
  return found.records.size() == 1 ? found.records.front().reference : nullptr;
}

std::vector<CertificateInfo> CVNKeychain::smartcardCertificateArrayFromKeychain() const {
  const std::vector<std::string> tokenIDs = tokens_.tokenIDs();
  CVNLogDebug("token IDS: %@", textForm(tokenIDs));
  std::vector<CertificateInfo> list;
  for (const std::string &tokenID : tokenIDs) {
    IdentityQuery query = identity::queryWithAttributes();
    query.tokenID = tokenID;
    CVNLogDebug("querying for identities on %s", tokenID);
    const platform::IdentityMatches found = tokens_.searchIdentities(query, /*isWanted=*/nullptr);
    if (found.status == platform::itemNotFound) {
      CVNLog("No identities found for %s", tokenID);
      continue;
    }
    if (found.status != platform::itemSuccess) {
      CVNLog("SecItemCopyMatching error: %i", static_cast<int>(found.status));
      continue;
    }
    CVNLogDebug("found %li identities", found.records.size());
    std::ranges::transform(found.records, std::back_inserter(list), describeWithKeyHash);
  }
  if (settings::isOn(settings::kDebugLogging, defaults_)) {
    CVNLogDebug("------certificate array from keychain------");
    for (const CertificateInfo &info : list) {
      CVNLogDebug("%@", info.certificate);
    }
  }
  return list;
}

std::vector<CertificateInfo> CVNKeychain::iosCertificateArrayFromKeychain() const {
  const bool isVerbose = settings::isOn(settings::kVerboseLogging, defaults_);
  CVNLogDebug("querying ios certificates");
  const platform::IdentityMatches found = searchEverywhere(identity::queryWithAttributes());
  if (found.status == platform::itemNotFound) {
    CVNLog("No identities found");
  } else if (found.status != platform::itemSuccess) {
    CVNLog("SecItemCopyMatching error: %i", static_cast<int>(found.status));
  }
  std::vector<CertificateInfo> list;
  std::ranges::transform(found.records, std::back_inserter(list), describe);
  if (isVerbose) {
    CVNLogDebug("------certificate array from keychain------");
    for (const CertificateInfo &info : list) {
      CVNLogDebug("certificate in keychain:%@", info.certificate);
    }
  }
  return list;
}

std::optional<std::vector<CVNKeychain::IdentityReference>> CVNKeychain::keychainIdentities() const {
  IdentityQuery query;
  query.returnReference = true;
  const platform::IdentityMatches found = searchEverywhere(query);
  if (found.status != platform::itemSuccess) {
    CVNLog("SecIdentityCopyCertificate error");
    return std::nullopt;
  }
  std::vector<IdentityReference> identities;
  std::ranges::transform(found.records, std::back_inserter(identities), &IdentityRecord::reference);
  return identities;
}

std::vector<CVNKeychain::IdentitySummary> CVNKeychain::availableIdentityInfo() const {
  std::vector<IdentitySummary> summaries;
  const auto identities = keychainIdentities();
  for (const IdentityReference &identity : identities.value_or(std::vector<IdentityReference>{})) {
    if (const auto name = identity->certificate.commonName()) {
      summaries.push_back({*name, encodings::hexString(identity->certificate.sha1())});
    }
  }
  return summaries;
}
