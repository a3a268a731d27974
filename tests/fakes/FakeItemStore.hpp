#pragma once

#include <algorithm>
#include <map>

#include "platform/ItemStore.hpp"
#include "platform/TokenWatcher.hpp"

namespace fakes {

// A keychain and tokens whose items and failures the test chooses.
class FakeItemStore : public platform::ItemStore, public platform::TokenWatcher {
 public:
  struct Item {
    platform::IdentityRecord record;
    std::string tokenID;  // empty: in the keychain
  };

  platform::IdentityMatches searchIdentities(const platform::IdentityQuery &query) override {
    return search(query, /*onTokens=*/false, failure);
  }
  platform::IdentityMatches searchIdentities(const platform::IdentityQuery &query,
                                             const IsWanted &isWanted) override {
    isWantedGiven = isWanted != nullptr;
    return search(query, /*onTokens=*/true, tokenFailure);
  }
  platform::ItemStatus addIdentity(const platform::IdentityRecord &record,
                                   const std::optional<std::string> &) override {
    const auto hasSame = [&](const Item &item) {
      return item.record.reference->certificate.der() == record.reference->certificate.der();
    };
    if (failure != platform::itemSuccess) {
      return failure;
    }
    if (std::ranges::any_of(items, hasSame)) {
      return platform::itemDuplicate;
    }
    items.push_back({record, ""});
    return platform::itemSuccess;
  }
  platform::ItemStatus deleteIdentity(ByteView) override { return platform::itemStoreUnusable; }
  platform::PasswordMatch searchPassword(const platform::PasswordName &name,
                                         bool returnData) override {
    const auto found = passwords.find(keyOf(name));
    if (failure != platform::itemSuccess || found == passwords.end()) {
      return {failure != platform::itemSuccess ? failure : platform::itemNotFound, {}, {}};
    }
    platform::PasswordMatch match = found->second;
    match.value = returnData ? match.value : std::nullopt;
    return match;
  }
  platform::ItemStatus addPassword(const platform::PasswordName &name,
                                   const SecretBytes &value) override {
    return write(name, value, !passwords.contains(keyOf(name)), platform::itemDuplicate);
  }
  platform::ItemStatus updatePassword(const platform::PasswordName &name,
                                      const SecretBytes &value) override {
    return write(name, value, passwords.contains(keyOf(name)), platform::itemNotFound);
  }
  platform::ItemStatus deletePassword(const platform::PasswordName &name) override {
    return passwords.erase(keyOf(name)) == 1 ? platform::itemSuccess : platform::itemNotFound;
  }
  [[nodiscard]] platform::StoreTrouble trouble() const override {
    return platform::StoreTrouble::other;
  }
  std::vector<std::string> tokenIDs() override { return presentTokens; }

  std::vector<Item> items;
  std::vector<std::string> presentTokens;
  platform::ItemStatus failure = platform::itemSuccess;       // of the keychain
  platform::ItemStatus tokenFailure = platform::itemSuccess;  // of every search on tokens
  bool isWantedGiven = false;  // whether the last of them said what it was for
  std::vector<platform::IdentityQuery> queries;
  platform::ItemStatus writeFailure = platform::itemSuccess;  // of adding and updating passwords
  // By service, account and group, in one text; "#" before those that do not synchronise.
  std::map<std::string, platform::PasswordMatch> passwords;

 private:
  platform::IdentityMatches search(const platform::IdentityQuery &query, bool onTokens,
                                   platform::ItemStatus refusal) {
    queries.push_back(query);
    if (refusal != platform::itemSuccess) {
      return {refusal, {}};
    }
    platform::IdentityMatches matches;
    for (const Item &item : items) {
      if (item.tokenID.empty() != onTokens &&
          query.tokenID.value_or(item.tokenID) == item.tokenID &&
          item.record.reference->certificate.subjectContains(query.subjectContains.value_or(""))) {
        matches.records.push_back(item.record);
      }
    }
    matches.status = matches.records.empty() ? platform::itemNotFound : platform::itemSuccess;
    return matches;
  }

  static std::string keyOf(const platform::PasswordName &name) {
    return (name.synchronizable ? "" : "#") + name.service + "/" + name.account + "/" +
           name.accessGroup.value_or("-");
  }
  platform::ItemStatus write(const platform::PasswordName &name, const SecretBytes &value,
                             bool isPossible, platform::ItemStatus refusal) {
    if (writeFailure != platform::itemSuccess || !isPossible) {
      return writeFailure != platform::itemSuccess ? writeFailure : refusal;
    }
    passwords[keyOf(name)] = {platform::itemSuccess, value, std::chrono::system_clock::now()};
    return platform::itemSuccess;
  }
};

}  // namespace fakes
