#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <string>
#include <vector>

#include "fakes/MadeKeys.hpp"
#include "fakes/TemporaryFolder.hpp"
#include "linux/store/SqliteItemStore.hpp"

inline platform::IdentityRecord madeRecord(const std::string &commonName) {
  platform::IdentityRecord record;
  record.reference = std::make_shared<const crypto::Identity>(fakes::makeIdentity(commonName));
  record.label = "Label of " + commonName;
  return record;
}

// A keychain in a folder of the test's own, and what it has reported.
struct StoreTest : testing::Test {
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
