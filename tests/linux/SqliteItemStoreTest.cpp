#include "linux/store/SqliteItemStore.hpp"

#include <gmock/gmock.h>
#include <sqlite3.h>

#include "crypto/Digest.hpp"
#include "fakes/MadeIdentity.hpp"
#include "fakes/TemporaryFolder.hpp"

namespace {

using platform::IdentityQuery;
using platform::IdentityRecord;
using platform::PasswordName;
using testing::ElementsAre;
using testing::HasSubstr;

IdentityRecord madeRecord(const std::string &commonName) {
  return fakes::makeIdentity(commonName, "Label of " + commonName);
}

SecretBytes secret(const std::string &text) {
  return SecretBytes(base::viewOf(text));
}

IdentityQuery query(std::optional<std::string> IdentityQuery::*restriction,
                    const std::string &text) {
  IdentityQuery made;
  made.*restriction = text;
  return made;
}

// A keychain in a folder of the test's own, and what it has reported.
struct SqliteItemStore : testing::Test {
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
  std::string valueOf(const PasswordName &name) {
    const auto match = store.searchPassword(name, /*returnData=*/true);
    return match.value ? std::string(base::textOf(match.value->reveal()))
                       : std::to_string(match.status);
  }
  // Changes the file behind the store's back.
  void runInFile(const char *statements) const {
    sqlite3 *database = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &database), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(database, statements, nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(database);
  }

  const std::string kFile = "lib/keyferry/keychain.db";
  fakes::TemporaryFolder folder;
  std::string path = folder / kFile;
  std::vector<std::string> reports;
  platform_linux::SqliteItemStore store{
      path, [this](const std::string &line) { reports.push_back(line); }};
};

TEST_F(SqliteItemStore, GivesBackWhatWasAdded) {
  IdentityRecord added = madeRecord("host");
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
  const std::pair<const char *, std::function<void()>> kCases[] = {
      {"mode 0640", [&] { ::chmod(path.c_str(), 0640); }},
      {"not a database", [&] { folder.write(kFile, std::string(5000, 'x')); }},
      {"malformed", [&] { std::filesystem::resize_file(path, 6000); }},
      {"newer version (schema 3", [&] { runInFile("PRAGMA user_version=3"); }},
  };
  add("a");
  const std::string whole = folder.read(kFile);
  for (const auto &[cause, damage] : kCases) {
    SCOPED_TRACE(cause);
    folder.write(kFile, whole);
    ::chmod(path.c_str(), 0600);
    reports.clear();
    damage();
    const auto matches = store.searchIdentities({});
    EXPECT_EQ(matches.status, platform::itemStoreUnusable);
    EXPECT_TRUE(matches.records.empty());
    EXPECT_EQ(store.addIdentity(madeRecord("more"), std::nullopt), platform::itemStoreUnusable);
    EXPECT_EQ(store.deleteIdentity(Bytes(20)), platform::itemStoreUnusable);
    const auto line = testing::AllOf(HasSubstr(path), HasSubstr(cause));
    EXPECT_THAT(reports, ElementsAre(line, line, line));
  }
}

TEST_F(SqliteItemStore, PasswordsAreTheirNamesAlone) {
  const PasswordName names[] = {{"s", "a", {}},  {"s", "b", {}}, {"t", "a", {}},
                                {"s", "a", "g"}, {"s", "a", ""}, {"s", "a", {}, false}};
  for (const PasswordName &name : names) {
    EXPECT_EQ(store.updatePassword(name, secret("x")), platform::itemNotFound);
    EXPECT_EQ(store.addPassword(name, secret("")), platform::itemSuccess);
    EXPECT_EQ(store.addPassword(name, secret("x")), platform::itemDuplicate);
    EXPECT_EQ(valueOf(name), "");
  }
  EXPECT_EQ(store.updatePassword(names[3], secret("changed")), platform::itemSuccess);
  EXPECT_EQ(store.deletePassword(names[4]), platform::itemSuccess);
  EXPECT_EQ(store.deletePassword(names[4]), platform::itemNotFound);
  EXPECT_EQ(valueOf(names[3]), "changed");
  EXPECT_EQ(valueOf(names[4]), "-25300");
  EXPECT_EQ(valueOf(names[0]) + valueOf(names[5]), "");
  EXPECT_THAT(reports, ElementsAre());
}

TEST_F(SqliteItemStore, PasswordsComeToAFileOfTheVersionBeforeThem) {
  add("old");
  runInFile("DROP TABLE passwords; PRAGMA user_version=1");
  const PasswordName name{"s", "a", {}};
  EXPECT_EQ(store.addPassword(name, secret("x")), platform::itemSuccess);
  EXPECT_EQ(valueOf(name), "x");
  EXPECT_EQ(store.searchIdentities({}).records.size(), 1U) << "and nothing is lost";
  EXPECT_THAT(reports, ElementsAre());
}

}  // namespace
