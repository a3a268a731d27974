#include "linux/store/SqliteItemStore.hpp"

#include <sys/stat.h>

#include <filesystem>
#include <functional>

#include "crypto/Digest.hpp"
#include "linux/StoreTest.hpp"

namespace {

using platform::IdentityQuery;
using platform::IdentityRecord;
using testing::ElementsAre;
using testing::HasSubstr;

IdentityQuery query(std::optional<std::string> IdentityQuery::*restriction,
                    const std::string &text) {
  IdentityQuery made;
  made.*restriction = text;
  return made;
}

struct SqliteItemStore : StoreTest {
  std::vector<std::string> labelsOf(const IdentityQuery &asked) {
    std::vector<std::string> labels;
    for (const IdentityRecord &record : store.searchIdentities(asked).records) {
      labels.push_back(record.label.value_or("none"));
    }
    return labels;
  }
  void add(const std::string &name, const std::optional<std::string> &group = {}) {
    ASSERT_EQ(store.addIdentity(madeRecord(name), group), platform::itemSuccess);
  }
};

TEST_F(SqliteItemStore, GivesBackWhatWasAdded) {
  IdentityRecord added = madeRecord("host");
  added.canSign = true;
  added.canUnwrap = true;
  ASSERT_EQ(store.addIdentity(added, std::nullopt), platform::itemSuccess);
  EXPECT_EQ(folder.modeOf(kFile), 0600u);
  EXPECT_EQ(folder.modeOf("lib/keyferry"), 0700u);

  const auto matches = store.searchIdentities({});
  ASSERT_EQ(matches.status, platform::itemSuccess);
  const IdentityRecord &found = matches.records.at(0);
  EXPECT_EQ(found.reference->certificate.der(), added.reference->certificate.der());
  EXPECT_TRUE(
      base::equal(found.reference->key.pkcs8().reveal(), added.reference->key.pkcs8().reveal()));
  EXPECT_EQ(found.label, "Label of host");
  const auto exported = added.reference->key.publicKey().externalRepresentation();
  EXPECT_EQ(found.publicKeyHash, crypto::sha1Digest(exported.value()));
  EXPECT_TRUE(found.canSign && found.canUnwrap && !found.canDecrypt);
}

TEST_F(SqliteItemStore, SearchesInTheOrderOfAdding) {
  add("zeta");
  add("Alpha", "group");
  add("alphabet");
  EXPECT_THAT(labelsOf({}), ElementsAre("Label of zeta", "Label of Alpha", "Label of alphabet"));
  EXPECT_THAT(labelsOf(query(&IdentityQuery::accessGroup, "group")), ElementsAre("Label of Alpha"));
  EXPECT_THAT(labelsOf(query(&IdentityQuery::subjectContains, "ALPHA")),
              ElementsAre("Label of Alpha", "Label of alphabet"));
  EXPECT_THAT(labelsOf(query(&IdentityQuery::tokenID, "card")), ElementsAre());
  EXPECT_EQ(store.searchIdentities(query(&IdentityQuery::subjectContains, "CN")).status,
            platform::itemNotFound);
}

TEST_F(SqliteItemStore, LeavesNothingOfADeletedKeyInTheFile) {
  const IdentityRecord record = madeRecord("host");
  const Bytes digest = record.reference->certificate.sha1();
  const SecretBytes key = record.reference->key.pkcs8();
  ASSERT_EQ(store.addIdentity(record, std::nullopt), platform::itemSuccess);
  add("other");
  ASSERT_NE(folder.read(kFile).find(base::textOf(key.reveal())), std::string::npos);

  EXPECT_EQ(store.deleteIdentity(digest), platform::itemSuccess);
  EXPECT_EQ(folder.read(kFile).find(base::textOf(key.reveal())), std::string::npos);
  EXPECT_EQ(store.deleteIdentity(digest), platform::itemNotFound);
  EXPECT_THAT(labelsOf({}), ElementsAre("Label of other"));
}

TEST_F(SqliteItemStore, PassesOverAnIdentityThatCannotBeRead) {
  add("host");
  add("other");
  runInFile("UPDATE identities SET private_key = x'3000' WHERE id = 1");
  EXPECT_THAT(labelsOf({}), ElementsAre("Label of other"));
  EXPECT_THAT(reports, ElementsAre("keychain " + path + ": identity 1 cannot be read"));
}

TEST_F(SqliteItemStore, IsUnusableWhenDamagedAndSaysSoOnceForEachOperation) {
  struct Case {
    const char *cause;
    std::function<void()> damage;
  };
  const Case kCases[] = {
      {"mode 0640", [&] { ::chmod(path.c_str(), 0640); }},
      {"not a database", [&] { folder.write(kFile, std::string(5000, 'x')); }},
      {"malformed", [&] { std::filesystem::resize_file(path, 6000); }},
      {"newer version (schema 3", [&] { runInFile("PRAGMA user_version=3"); }},
  };
  for (const char *name : {"a", "b", "c", "d", "e", "f"}) {
    add(name);
  }
  const std::string whole = folder.read(kFile);
  for (const Case &row : kCases) {
    SCOPED_TRACE(row.cause);
    folder.write(kFile, whole);
    ::chmod(path.c_str(), 0600);
    reports.clear();
    row.damage();
    const auto matches = store.searchIdentities({});
    EXPECT_EQ(matches.status, platform::itemStoreUnusable);
    EXPECT_TRUE(matches.records.empty());
    EXPECT_EQ(store.addIdentity(madeRecord("more"), std::nullopt), platform::itemStoreUnusable);
    EXPECT_EQ(store.deleteIdentity(Bytes(20)), platform::itemStoreUnusable);
    const auto line = testing::AllOf(HasSubstr(path), HasSubstr(row.cause));
    EXPECT_THAT(reports, ElementsAre(line, line, line));
  }
}

}  // namespace
