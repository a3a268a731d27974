#pragma once

#include <string>
#include <vector>

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

  [[nodiscard]] platform::IdentityMatches searchIdentities(
      const platform::IdentityQuery &query) override {
    return search(query, /*onTokens=*/false, failure);
  }
  [[nodiscard]] platform::IdentityMatches searchIdentities(const platform::IdentityQuery &query,
                                                           const IsWanted &isWanted) override {
    ++tokenSearches;
    isWantedGiven = isWanted != nullptr;
    return search(query, /*onTokens=*/true, tokenFailure);
  }
  [[nodiscard]] platform::ItemStatus addIdentity(
      const platform::IdentityRecord & /*record*/,
      const std::optional<std::string> & /*accessGroup*/) override {
    return platform::itemStoreUnusable;
  }
  [[nodiscard]] platform::ItemStatus deleteIdentity(ByteView /*certificateSHA1*/) override {
    return platform::itemStoreUnusable;
  }
  [[nodiscard]] std::vector<std::string> tokenIDs() override { return presentTokens; }

  std::vector<Item> items;
  std::vector<std::string> presentTokens;
  platform::ItemStatus failure = platform::itemSuccess;       // of the keychain
  platform::ItemStatus tokenFailure = platform::itemSuccess;  // of every search on tokens
  int tokenSearches = 0;
  bool isWantedGiven = false;  // whether the last of them said what it was for
  std::vector<platform::IdentityQuery> queries;

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
          item.record.reference->certificate.subject().find(query.subjectContains.value_or("")) !=
              std::string::npos) {
        matches.records.push_back(item.record);
      }
    }
    matches.status = matches.records.empty() ? platform::itemNotFound : platform::itemSuccess;
    return matches;
  }
};

}  // namespace fakes
