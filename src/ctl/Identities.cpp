#include "ctl/Identities.hpp"

#include <algorithm>
#include <functional>
#include <ostream>
#include <utility>

#include "base/DisplayText.hpp"
#include "base/LowerCase.hpp"
#include "crypto/Certificate.hpp"
#include "crypto/PublicKey.hpp"
#include "ctl/DateText.hpp"
#include "ctl/HashText.hpp"
#include "ctl/KeychainTrouble.hpp"
#include "ctl/StoredSettings.hpp"
#include "encodings/HexString.hpp"
#include "identity/FingerprintText.hpp"
#include "identity/NewIdentity.hpp"
#include "identity/PinnedCertificate.hpp"
#include "identity/QueryWithAttributes.hpp"
#include "platform/TokenWatcher.hpp"

namespace ctl {
namespace {

// In double quotes, for a shell.
std::string quoted(const std::string &text) {
  return "\"" + text + "\"";
}

std::optional<std::string> settingText(const char *key, Failure &failure) {
  Error error;
  const auto value = storedSetting(settings::kIdentityDomain, key, &error);
  failure = failureFrom(error, "kfyctl identity show");
  const auto *const text = value ? std::get_if<std::string>(&*value) : nullptr;
  return text == nullptr ? std::nullopt : std::optional(*text);
}

using Matches = platform::TokenWatcher::IsWanted;

Matches hasHash(const Bytes &hash) {
  return
      [hash](const IdentityRecord &record) { return record.reference->certificate.sha1() == hash; };
}

Matches hasLabel(const std::string &label) {
  return [label](const IdentityRecord &record) { return labelOf(record) == label; };
}

// The keychain's identities, or the tokens' if it has none: the order in which kfyd looks.
std::optional<std::vector<IdentityRecord>> allThatMatch(const Matches &matches,
                                                        Invocation &invocation, Failure &failure) {
  auto records = allIdentities(invocation, failure);
  if (!records) {
    return std::nullopt;
  }
  if (std::ranges::none_of(*records, matches)) {
    // token by token, so that a failing token does not hide the others
    for (TokenIdentities &token : identitiesOnTokens(invocation)) {
      std::ranges::move(token.records, std::back_inserter(*records));
    }
  }
  std::erase_if(*records, std::not_fn(matches));
  return records;
}

std::optional<IdentityRecord> firstOf(const std::optional<std::vector<IdentityRecord>> &records) {
  return records && !records->empty() ? std::optional(records->front()) : std::nullopt;
}

std::string commonNameOf(const IdentityRecord &record) {
  return record.reference->certificate.commonName().value_or("");
}

}  // namespace

std::optional<std::vector<IdentityRecord>> allIdentities(Invocation &invocation, Failure &failure) {
  auto matches = invocation.keychain->searchIdentities(identity::queryWithAttributes());
  if (matches.status != platform::itemSuccess && matches.status != platform::itemNotFound) {
    failure = keychainUnusable(invocation);
    return std::nullopt;
  }
  return std::move(matches.records);
}

std::vector<TokenIdentities> identitiesOnTokens(Invocation &invocation) {
  std::vector<TokenIdentities> tokens;
  if (invocation.tokens == nullptr) {
    return tokens;
  }
  platform::IdentityQuery query = identity::queryWithAttributes();
  for (const std::string &id : invocation.tokens->tokenIDs()) {
    query.tokenID = id;
    tokens.push_back(
        {id, invocation.tokens->searchIdentities(query, /*isWanted=*/nullptr).records});
  }
  return tokens;
}

std::optional<IdentityRecord> identityNamed(const std::string &hashOrLabel, Invocation &invocation,
                                            Failure &failure) {
  if (const auto hash = sha1FromText(hashOrLabel)) {
    if (auto record = firstOf(allThatMatch(hasHash(*hash), invocation, failure))) {
      return record;
    }
  }
  const auto records = allThatMatch(hasLabel(hashOrLabel), invocation, failure);
  if (records && records->size() != 1) {
    failure = {records->empty()
                   ? "no identity " + quoted(hashOrLabel) + " in the keychain or on a token"
                   : std::to_string(records->size()) + " identities are labelled " +
                         quoted(hashOrLabel) + "; name one by its hash",
               "kfyctl identity list"};
    return std::nullopt;
  }
  return firstOf(records);
}

std::optional<IdentityRecord> identityInUse(Invocation &invocation, Failure &failure) {
  const auto hashText = settingText(settings::kIdentityHash.key, failure);
  const auto name = hashText.value_or("").empty()
                        ? settingText(settings::kIdentityName.key, failure)
                        : std::nullopt;
  const bool nothingIsSet = hashText.value_or("").empty() && name.value_or("").empty();
  if (nothingIsSet && !failure.what.empty()) {
    return std::nullopt;
  }
  if (nothingIsSet) {
    failure = {"no TLS identity is chosen, so kfyd cannot start its listeners",
               "kfyctl identity create --common-name $(hostname)"};
    return std::nullopt;
  }
  const auto hash = name ? std::nullopt : encodings::dataWithHexString(*hashText);
  const auto records =
      allThatMatch(name ? hasLabel(base::lowerCase(*name)) : hasHash(hash.value_or(Bytes{})),
                   invocation, failure);
  if (records && records->empty()) {
    failure = {"no TLS identity " +
                   (name ? "named " + quoted(*name) : "with the SHA-1 hash " + *hashText) +
                   " in the keychain or on a token, so kfyd cannot start its listeners",
               name ? "kfyctl identity create --common-name " + *name : "kfyctl identity list"};
  }
  return firstOf(records);
}

Outcome addIdentity(const crypto::Identity &identity, const std::string &label,
                    Invocation &invocation, bool &wasThere) {
  const IdentityRecord record = identity::describeNew(identity, label);
  if (!record.publicKeyHash) {
    return Failure{"the keychain cannot hold a key of this type",
                   "kfyctl identity create --common-name NAME"};
  }
  const auto status = invocation.keychain->addIdentity(record, /*accessGroup=*/std::nullopt);
  wasThere = status == platform::itemDuplicate;
  return wasThere || status == platform::itemSuccess ? Outcome() : keychainUnusable(invocation);
}

std::optional<IdentityRecord> makeIdentity(const std::string &commonName, const std::string &label,
                                           int days, Invocation &invocation, Failure &failure) {
  Error error;
  const auto key = crypto::PrivateKey::generateP256(&error);
  const auto certificate = key ? crypto::Certificate::selfSigned(*key, commonName, days,
                                                                 /*serverName=*/true, &error)
                               : std::nullopt;
  if (!certificate) {
    failure = {error.description, "kfyctl identity create --help"};
    return std::nullopt;
  }
  const crypto::Identity identity{*certificate, *key};
  bool wasThere = false;
  if (auto notAdded = addIdentity(identity, label, invocation, wasThere)) {
    failure = std::move(*notAdded);
    return std::nullopt;
  }
  return identity::describeNew(identity, label);
}

void tellOf(const IdentityRecord &record, bool wasThere, Invocation &invocation) {
  const std::string hash = hashOf(record);
  const Facts facts{
      {"sha1", "SHA-1", hash}, {"label", "label", labelOf(record)}, {"added", "added", !wasThere}};
  invocation.output << (invocation.json ? jsonOf(facts) : hash + "\n");
  invocation.notes << "kfyctl: \"" << base::displayText(labelOf(record)) << "\" is in the keychain"
                   << (wasThere ? " already" : "")
                   << "; kfyd will show it after: kfyctl identity use " << hash << '\n';
}

Outcome useIdentity(const IdentityRecord &record) {
  const std::string command = "kfyctl identity use " + hashOf(record);
  Error error;
  const platform_linux::SettingsFile settings(pathOfDomain(settings::kIdentityDomain));
  if (!settings.set(settings::kIdentityHash.key, hashOf(record), &error) ||
      !identity::publishPinnedCertificate(record.reference->certificate, &error)) {
    return failureFrom(error, command);
  }
  return std::nullopt;
}

std::string hashOf(const IdentityRecord &record) {
  return encodings::hexString(record.reference->certificate.sha1());
}

std::string labelOf(const IdentityRecord &record) {
  return record.label.value_or("");
}

Facts factsOf(const IdentityRecord &record, bool isInUse) {
  const crypto::Certificate &certificate = record.reference->certificate;
  const auto key = certificate.publicKey();
  return {{"label", "label", labelOf(record)},
          {"commonName", "common name", commonNameOf(record)},
          {"sha1", "SHA-1", hashOf(record)},
          {"sha256", "SHA-256", encodings::hexString(certificate.sha256()),
           identity::fingerprintText(certificate.sha256())},
          {"notBefore", "valid from", dateText(certificate.notBefore())},
          {"notAfter", "valid until", dateText(certificate.notAfter())},
          {"key", "key", key ? key->description() : "unknown"},
          {"publicKeyHash", "public-key hash",
           encodings::hexString(record.publicKeyHash.value_or(Bytes()))},
          {"inUse", "used by kfyd", isInUse}};
}

}  // namespace ctl
