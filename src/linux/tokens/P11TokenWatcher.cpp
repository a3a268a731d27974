#include "linux/tokens/P11TokenWatcher.hpp"

#include <algorithm>
#include <iterator>
#include <tuple>
#include <utility>

#include "base/Root.hpp"
#include "linux/tokens/Token.hpp"
#include "linux/tokens/TokenKey.hpp"

namespace platform_linux {

using platform::IdentityMatches;
using platform::IdentityQuery;
using platform::IdentityRecord;

namespace {

// CKA_CERTIFICATE_CATEGORY of an authority's certificate (PKCS #11 v2.40, 4.6.2).
constexpr CK_ULONG kAuthority = 2;

// A certificate whose private key may be on the same token.
struct CertificateObject {
  Bytes id;  // CKA_ID, which the private key shares
  std::string label;
  Bytes der;
  bool isAuthority = false;

  auto operator<=>(const CertificateObject &other) const {
    return std::tie(id, label, der) <=> std::tie(other.id, other.label, other.der);
  }
};

// A token and the objects that it shows.
struct OpenToken {
  std::shared_ptr<Token> token;
  std::vector<IdentityRecord> records;
  std::vector<bool> isHidden;  // of each record: whether the token hides its private key
};

// Sorted, because tokens list their objects in any order.
std::vector<CertificateObject> certificatesOn(const Token &token) {
  std::vector<CertificateObject> certificates;
  for (const CK_OBJECT_HANDLE object : token.objects(CKO_CERTIFICATE)) {
    CertificateObject certificate{token.attribute(object, CKA_ID),
                                  std::string(base::textOf(token.attribute(object, CKA_LABEL))),
                                  token.attribute(object, CKA_VALUE),
                                  token.number(object, CKA_CERTIFICATE_CATEGORY) == kAuthority};
    if (!certificate.id.empty()) {
      certificates.push_back(std::move(certificate));
    }
  }
  std::ranges::sort(certificates,
                    [](const auto &left, const auto &right) { return (left <=> right) < 0; });
  return certificates;
}

// What a key may do: its own attributes say so or, while it is hidden, those of its public key.
void describe(IdentityRecord &record, const Token &token, const Bytes &id, bool isHidden) {
  const auto objects = token.objects(isHidden ? CKO_PUBLIC_KEY : CKO_PRIVATE_KEY, &id);
  if (!objects.empty()) {
    const CK_OBJECT_HANDLE key = objects.front();
    record.canSign = token.isSet(key, isHidden ? CKA_VERIFY : CKA_SIGN);
    record.canDecrypt = token.isSet(key, isHidden ? CKA_ENCRYPT : CKA_DECRYPT);
    record.canUnwrap = token.isSet(key, isHidden ? CKA_WRAP : CKA_UNWRAP);
  }
}

std::optional<IdentityRecord> recordOf(const CertificateObject &object,
                                       const std::shared_ptr<Token> &token, bool isHidden,
                                       const Report &report) {
  const auto certificate = crypto::Certificate::fromDER(object.der);
  const auto publicKey = certificate ? certificate->publicKey() : std::nullopt;
  const auto keyHash = publicKey ? publicKey->hash() : std::nullopt;
  if (!keyHash) {
    return std::nullopt;
  }
  const auto key = crypto::privateKeyDoneBy(
      std::make_shared<TokenKey>(token, object.id, object.label, report), *publicKey);
  if (!key) {
    return std::nullopt;
  }
  IdentityRecord record;
  record.reference = std::make_shared<const crypto::Identity>(crypto::Identity{*certificate, *key});
  record.label = object.label;
  record.publicKeyHash = keyHash;
  describe(record, *token, object.id, isHidden);
  return record;
}

// The first failure of a look-up; CKR_OK if there was none.
CK_RV readRecords(OpenToken &open, const Report &report) {
  const std::lock_guard lock(open.token->mutex());
  open.records.clear();
  open.isHidden.clear();
  const bool hides = open.token->wantsLogin() && !open.token->isLoggedIn();
  for (const CertificateObject &object : certificatesOn(*open.token)) {
    const bool isThere = !open.token->objects(CKO_PRIVATE_KEY, &object.id).empty();
    if (!isThere && (!hides || object.isAuthority)) {
      continue;
    }
    if (auto record = recordOf(object, open.token, !isThere, report)) {
      open.records.push_back(std::move(*record));
      open.isHidden.push_back(!isThere);
    }
  }
  return open.token->takeFailure();
}

CK_RV openAndRead(OpenToken &open, const Report &report) {
  std::unique_lock lock(open.token->mutex());
  const CK_RV result = open.token->open();
  lock.unlock();
  return result == CKR_OK ? readRecords(open, report) : result;
}

// The tokens that could be read, with their objects, and the first failure of one that could not.
std::vector<OpenToken> openTokens(const std::vector<TokenPlace> &places, const IdentityQuery &query,
                                  const Report &report, CK_RV &failure) {
  std::vector<OpenToken> tokens;
  for (const TokenPlace &place : places) {
    if (query.tokenID && *query.tokenID != place.id) {
      continue;
    }
    OpenToken open{std::make_shared<Token>(place), {}, {}};
    if (const CK_RV result = openAndRead(open, report); result == CKR_OK) {
      tokens.push_back(std::move(open));
    } else {
      report("token " + place.id + " left out: " + p11_kit_strerror(result));
      failure = failure == CKR_OK ? result : failure;
    }
  }
  return tokens;
}

// A failure as the status of a search: its own number, unless that number means something else
// there.
platform::ItemStatus statusOf(CK_RV failure) {
  const auto status = static_cast<platform::ItemStatus>(static_cast<std::int32_t>(failure));
  return status == platform::itemSuccess || status == platform::itemNotFound
             ? platform::itemStoreUnusable
             : status;
}

bool takesPIN(const OpenToken &open) {
  const std::lock_guard lock(open.token->mutex());
  return open.token->takesPIN();
}

// The only token that is given the PIN; null if none wants one.
OpenToken *tokenForPIN(std::vector<OpenToken> &tokens,
                       const platform::TokenWatcher::IsWanted &isWanted) {
  const auto holder = std::ranges::find_if(tokens, [&](const OpenToken &open) {
    return isWanted && std::ranges::any_of(open.records, isWanted);
  });
  if (holder != tokens.end()) {
    return takesPIN(*holder) ? &*holder : nullptr;
  }
  const auto first = std::ranges::find_if(tokens, takesPIN);
  return first == tokens.end() ? nullptr : &*first;
}

// The answers by which a working token refuses this PIN.
bool isAboutThePIN(CK_RV result) {
  return (result >= CKR_PIN_INCORRECT && result <= CKR_PIN_LOCKED) ||
         (result >= CKR_USER_ALREADY_LOGGED_IN && result <= CKR_USER_TOO_MANY_TYPES);
}

platform::ItemStatus logIn(OpenToken &open, const SecretText &pin, const Report &report) {
  std::unique_lock lock(open.token->mutex());
  CK_RV result = open.token->login(pin);
  lock.unlock();
  if (result == CKR_OK) {
    result = readRecords(open, report);
  }
  if (result == CKR_OK) {
    return platform::itemSuccess;
  }
  report("token " + open.token->id() +
         (result == CKR_PIN_LOCKED
              ? " did not get the PIN: one more wrong one would lock it, or it is locked"
              : std::string(" did not take the PIN: ") + p11_kit_strerror(result)));
  return isAboutThePIN(result) ? platform::itemPINRefused : statusOf(result);
}

void reportHidden(const OpenToken &open, const platform::TokenWatcher::IsWanted &isWanted,
                  const Report &report) {
  for (std::size_t index = 0; isWanted && index < open.records.size(); ++index) {
    if (open.isHidden[index] && isWanted(open.records[index])) {
      report("key \"" + open.records[index].label.value_or("") + "\" on token " + open.token->id() +
             " does not work before the token has its PIN");
    }
  }
}

}  // namespace

P11TokenWatcher::P11TokenWatcher(Report report, std::optional<std::string> moduleFolder)
    : report_(report ? std::move(report) : [](const std::string &) {}),
      moduleFolder_(std::move(moduleFolder)) {}

std::optional<std::string> P11TokenWatcher::moduleFolderOfRoot() {
  return base::root().empty() ? std::nullopt : std::optional(base::rooted("/etc/pkcs11/modules"));
}

std::vector<std::string> P11TokenWatcher::tokenIDs() {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> ids;
  const Modules modules = startModules(moduleFolder_, report_);
  std::ranges::transform(presentTokens(modules.started, report_).places, std::back_inserter(ids),
                         &TokenPlace::id);
  return ids;
}

IdentityMatches P11TokenWatcher::searchIdentities(const IdentityQuery &query,
                                                  const IsWanted &isWanted) {
  if (query.accessGroup.value_or(platform::kTokenAccessGroup) != platform::kTokenAccessGroup) {
    return {};
  }
  const std::lock_guard lock(mutex_);
  const Modules modules = startModules(moduleFolder_, report_);
  const PresentTokens present = presentTokens(modules.started, report_);
  CK_RV failure = CKR_OK;
  auto tokens = openTokens(present.places, query, report_, failure);
  if (failure == CKR_OK && (!query.tokenID || tokens.empty())) {
    failure = modules.failure == CKR_OK ? present.failure : modules.failure;
  }
  OpenToken *const chosen = query.pin == nullptr ? nullptr : tokenForPIN(tokens, isWanted);
  if (chosen != nullptr) {
    if (const auto status = logIn(*chosen, *query.pin, report_); status != platform::itemSuccess) {
      return {status, {}};
    }
  }
  IdentityMatches matches;
  for (OpenToken &open : tokens) {
    reportHidden(open, isWanted, report_);
    std::ranges::copy_if(
        open.records, std::back_inserter(matches.records), [&](const IdentityRecord &record) {
          return record.reference->certificate.subjectContains(query.subjectContains.value_or(""));
        });
  }
  const bool hasWanted = isWanted && std::ranges::any_of(matches.records, isWanted);
  if (failure != CKR_OK && !hasWanted) {
    return {statusOf(failure), {}};
  }
  matches.status = matches.records.empty() ? platform::itemNotFound : platform::itemSuccess;
  return matches;
}

}  // namespace platform_linux
