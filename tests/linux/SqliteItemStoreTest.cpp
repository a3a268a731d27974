#include "linux/store/SqliteItemStore.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "crypto/Digest.hpp"
#include "fakes/TemporaryFolder.hpp"

namespace {

using platform::IdentityQuery;
using platform::IdentityRecord;
using testing::ElementsAre;
using testing::HasSubstr;

unsigned modeOf(const std::string &path) {
  struct stat status{};
  return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

IdentityRecord madeRecord(const std::string &commonName) {
  const auto key = crypto::PrivateKey::generateP256().value();
  IdentityRecord record;
  record.reference = std::make_shared<const crypto::Identity>(crypto::Identity{
      crypto::Certificate::selfSigned(key, commonName, 30, /*serverName=*/false).value(), key});
  record.label = "Label of " + commonName;
  return record;
}

IdentityQuery query(std::optional<std::string> IdentityQuery::*restriction,
                    const std::string &text) {
  IdentityQuery made;
  made.*restriction = text;
  return made;
}

struct SqliteItemStore : testing::Test {
  std::vector<std::string> labelsOf(const IdentityQuery &asked) {
    std::vector<std::string> labels;
    for (const IdentityRecord &record : store.searchIdentities(asked).records) {
      labels.push_back(record.label.value_or("none"));
    }
    return labels;
  }

  void runInFile(const char *statements) const {
    sqlite3 *database = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &database), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(database, statements, nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(database);
  }

  fakes::TemporaryFolder folder;
  std::string path = folder / "lib/keyferry/keychain.db";
  std::vector<std::string> reports;
  platform_linux::SqliteItemStore store{
      path, [this](const std::string &line) { reports.push_back(line); }};
};

TEST_F(SqliteItemStore, IsEmptyWhileThereIsNoFile) {
  EXPECT_EQ(store.searchIdentities({}).status, platform::itemNotFound);
  EXPECT_EQ(store.deleteIdentity(Bytes(20)), platform::itemNotFound);
  EXPECT_FALSE(std::filesystem::exists(folder / "lib"));
  EXPECT_THAT(reports, ElementsAre());
}

TEST_F(SqliteItemStore, GivesBackWhatWasAdded) {
  IdentityRecord added = madeRecord("host");
  added.canSign = true;
  added.canUnwrap = true;
  ASSERT_EQ(store.addIdentity(added, std::nullopt), platform::itemSuccess);
  EXPECT_EQ(modeOf(path), 0600u);
  EXPECT_EQ(modeOf(folder / "lib/keyferry"), 0700u);

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
  EXPECT_THAT(reports, ElementsAre());
}

TEST_F(SqliteItemStore, KeepsAHashThatItIsGivenAndTheLackOfALabel) {
  IdentityRecord added = madeRecord("host");
  added.publicKeyHash = Bytes(20, 7);
  added.label.reset();
  ASSERT_EQ(store.addIdentity(added, std::nullopt), platform::itemSuccess);
  IdentityQuery attributes;
  attributes.returnAttributes = true;
  const auto matches = store.searchIdentities(attributes);
  ASSERT_EQ(matches.records.size(), 1u);
  EXPECT_EQ(matches.records[0].publicKeyHash, Bytes(20, 7));
  EXPECT_EQ(matches.records[0].label, std::nullopt);
  EXPECT_EQ(matches.records[0].reference, nullptr) << "not asked for";
}

TEST_F(SqliteItemStore, SearchesInTheOrderOfAdding) {
  ASSERT_EQ(store.addIdentity(madeRecord("zeta"), std::nullopt), platform::itemSuccess);
  ASSERT_EQ(store.addIdentity(madeRecord("Alpha"), "group"), platform::itemSuccess);
  ASSERT_EQ(store.addIdentity(madeRecord("alphabet"), std::nullopt), platform::itemSuccess);
  EXPECT_THAT(labelsOf({}), ElementsAre("Label of zeta", "Label of Alpha", "Label of alphabet"));
  EXPECT_THAT(labelsOf(query(&IdentityQuery::accessGroup, "group")), ElementsAre("Label of Alpha"));
  EXPECT_THAT(labelsOf(query(&IdentityQuery::subjectContains, "ALPHA")),
              ElementsAre("Label of Alpha", "Label of alphabet"));
  EXPECT_THAT(labelsOf(query(&IdentityQuery::subjectContains, "beta")), ElementsAre());
  EXPECT_THAT(labelsOf(query(&IdentityQuery::tokenID, "card")), ElementsAre());
  EXPECT_THAT(labelsOf(query(&IdentityQuery::accessGroup, platform::kTokenAccessGroup)),
              ElementsAre());
  EXPECT_EQ(store.searchIdentities(query(&IdentityQuery::subjectContains, "beta")).status,
            platform::itemNotFound);
}

TEST_F(SqliteItemStore, RefusesACertificateThatIsThere) {
  IdentityRecord record = madeRecord("host");
  ASSERT_EQ(store.addIdentity(record, std::nullopt), platform::itemSuccess);
  record.label = "another";
  EXPECT_EQ(store.addIdentity(record, "group"), platform::itemDuplicate);
  EXPECT_THAT(labelsOf({}), ElementsAre("Label of host"));
}

TEST_F(SqliteItemStore, LeavesNothingOfADeletedKeyInTheFile) {
  const IdentityRecord record = madeRecord("host");
  const Bytes digest = record.reference->certificate.sha1();
  const SecretBytes key = record.reference->key.pkcs8();
  const std::string file = "lib/keyferry/keychain.db";
  ASSERT_EQ(store.addIdentity(record, std::nullopt), platform::itemSuccess);
  ASSERT_EQ(store.addIdentity(madeRecord("other"), std::nullopt), platform::itemSuccess);
  ASSERT_NE(folder.read(file).find(base::textOf(key.reveal())), std::string::npos);

  EXPECT_EQ(store.deleteIdentity(digest), platform::itemSuccess);
  EXPECT_EQ(folder.read(file).find(base::textOf(key.reveal())), std::string::npos);
  EXPECT_EQ(store.deleteIdentity(digest), platform::itemNotFound);
  EXPECT_THAT(labelsOf({}), ElementsAre("Label of other"));
}

TEST_F(SqliteItemStore, PassesOverAnIdentityThatCannotBeRead) {
  ASSERT_EQ(store.addIdentity(madeRecord("host"), std::nullopt), platform::itemSuccess);
  ASSERT_EQ(store.addIdentity(madeRecord("other"), std::nullopt), platform::itemSuccess);
  runInFile("UPDATE identities SET private_key = x'3000' WHERE id = 1");
  EXPECT_THAT(labelsOf({}), ElementsAre("Label of other"));
  EXPECT_THAT(reports, ElementsAre("keychain " + path + ": identity 1 cannot be read"));
}

TEST_F(SqliteItemStore, TakesAFileIntoWhichNothingWasWrittenYet) {
  ASSERT_EQ(store.addIdentity(madeRecord("host"), std::nullopt), platform::itemSuccess);
  folder.write("lib/keyferry/keychain.db", "");
  EXPECT_EQ(store.searchIdentities({}).status, platform::itemNotFound);
  EXPECT_EQ(store.deleteIdentity(Bytes(20)), platform::itemNotFound);
  EXPECT_EQ(store.addIdentity(madeRecord("host"), std::nullopt), platform::itemSuccess);
}

struct UnusableCase {
  const char *name;
  void (*damage)(const SqliteItemStore &test);
  const char *cause;
};

struct UnusableStore : SqliteItemStore, testing::WithParamInterface<UnusableCase> {};

TEST_P(UnusableStore, SaysSoOnceForEachOperation) {
  for (const char *name : {"a", "b", "c", "d", "e", "f"}) {
    ASSERT_EQ(store.addIdentity(madeRecord(name), std::nullopt), platform::itemSuccess);
  }
  GetParam().damage(*this);
  const auto matches = store.searchIdentities({});
  EXPECT_EQ(matches.status, platform::itemStoreUnusable);
  EXPECT_TRUE(matches.records.empty());
  EXPECT_EQ(store.addIdentity(madeRecord("more"), std::nullopt), platform::itemStoreUnusable);
  EXPECT_EQ(store.deleteIdentity(Bytes(20)), platform::itemStoreUnusable);
  const auto line = testing::AllOf(HasSubstr(path), HasSubstr(GetParam().cause));
  EXPECT_THAT(reports, ElementsAre(line, line, line));
}

INSTANTIATE_TEST_SUITE_P(
    Damages, UnusableStore,
    testing::Values(
        UnusableCase{"GroupCanRead",
                     [](const SqliteItemStore &test) { ::chmod(test.path.c_str(), 0640); },
                     "mode 0640"},
        UnusableCase{"OthersCanWrite",
                     [](const SqliteItemStore &test) { ::chmod(test.path.c_str(), 0602); },
                     "mode 0602"},
        UnusableCase{"NoDatabase",
                     [](const SqliteItemStore &test) {
                       test.folder.write("lib/keyferry/keychain.db", std::string(5000, 'x'));
                     },
                     "not a database"},
        UnusableCase{
            "Truncated",
            [](const SqliteItemStore &test) { std::filesystem::resize_file(test.path, 6000); },
            "malformed"},
        UnusableCase{"NewerVersion",
                     [](const SqliteItemStore &test) { test.runInFile("PRAGMA user_version=3"); },
                     "newer version (schema 3"},
        UnusableCase{"NoTable",
                     [](const SqliteItemStore &test) { test.runInFile("DROP TABLE identities"); },
                     "no such table"},
        UnusableCase{"Folder",
                     [](const SqliteItemStore &test) {
                       std::filesystem::remove(test.path);
                       std::filesystem::create_directory(test.path);
                     },
                     "not a regular file"}),
    [](const auto &row) { return std::string(row.param.name); });

}  // namespace
