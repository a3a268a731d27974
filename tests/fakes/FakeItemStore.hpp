#pragma once

#include <string>
#include <vector>

#include "platform/ItemStore.hpp"
#include "platform/TokenWatcher.hpp"

namespace fakes {

// A keychain whose items and failures the test chooses.
class FakeItemStore : public platform::ItemStore, public platform::TokenWatcher {
 public:
  struct Item {
    platform::IdentityRecord record;
    std::string tokenID;  // empty: in the keychain
  };

  [[nodiscard]] platform::IdentityMatches searchIdentities(
      const platform::IdentityQuery &query) override {
    queries.push_back(query);
    platform::IdentityMatches matches;
    for (const Item &item : items) {
      const bool isOnToken = !item.tokenID.empty();
      if ((query.tokenID && *query.tokenID != item.tokenID) ||
          (query.accessGroup == platform::kTokenAccessGroup && !isOnToken) ||
          (query.subjectContains && item.record.reference->certificate.subject().find(
                                        *query.subjectContains) == std::string::npos)) {
        continue;
      }
      matches.records.push_back(item.record);
    }
    matches.status = matches.records.empty() ? platform::itemNotFound : platform::itemSuccess;
    if (failure != platform::itemSuccess) {
      matches = {failure, {}};
    }
    return matches;
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
  platform::ItemStatus failure = platform::itemSuccess;
  std::vector<platform::IdentityQuery> queries;
};

}  // namespace fakes
