// The password items of the keychain.

#include <chrono>
#include <utility>

#include "linux/store/Database.hpp"
#include "linux/store/Schema.hpp"
#include "linux/store/SqliteItemStore.hpp"

namespace platform_linux {

using platform::ItemStatus;
using platform::PasswordMatch;
using platform::PasswordName;

namespace {

// IS, because a name without a group is one whose group is NULL.
constexpr const char *kSelectPassword =
    "SELECT value, modified FROM passwords WHERE service = ?1 AND account = ?2 AND"
    " access_group IS ?3 AND synchronizable = ?4";

constexpr const char *kInsertPassword =
    "INSERT INTO passwords (service, account, access_group, synchronizable, value, modified)"
    " VALUES (?1, ?2, ?3, ?4, ?5, ?6)";

constexpr const char *kUpdate =
    "UPDATE passwords SET value = ?5, modified = ?6 WHERE service = ?1 AND account = ?2 AND"
    " access_group IS ?3 AND synchronizable = ?4";

constexpr const char *kDelete =
    "DELETE FROM passwords WHERE service = ?1 AND account = ?2 AND access_group IS ?3 AND"
    " synchronizable = ?4";

void bindName(const Statement &statement, const PasswordName &name) {
  statement.bind(0, name.service);
  statement.bind(1, name.account);
  statement.bind(2, name.accessGroup);
  statement.bind(3, name.synchronizable);
}

void bindValue(const Statement &statement, const SecretBytes &value) {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  statement.bind(4, value.reveal());
  statement.bind(5, std::int64_t{std::chrono::floor<std::chrono::milliseconds>(now).count()});
}

}  // namespace

ItemStatus SqliteItemStore::openPasswords(Database &database) {
  const ItemStatus status = open(database);
  if (status == platform::itemSuccess && database.userVersion() < kSchemaWithPasswords) {
    return platform::itemNotFound;
  }
  return status;
}

PasswordMatch SqliteItemStore::searchPassword(const PasswordName &name, bool returnData) {
  PasswordMatch match;
  Database database;
  match.status = openPasswords(database);
  if (match.status != platform::itemSuccess) {
    return match;
  }
  const Statement row = database.prepare(kSelectPassword);
  bindName(row, name);
  switch (database.step(row)) {
    case Database::Step::row:
      break;
    case Database::Step::done:
      match.status = platform::itemNotFound;
      return match;
    case Database::Step::duplicate:
    case Database::Step::failed:
      match.status = unusable(database);
      return match;
  }
  if (returnData) {
    match.value.emplace(row.bytes(0));
  }
  match.modificationDate.emplace(std::chrono::milliseconds(row.number(1)));
  return match;
}

ItemStatus SqliteItemStore::addPassword(const PasswordName &name, const SecretBytes &value) {
  Database database;
  const ItemStatus status = beginAdding(database);
  if (status != platform::itemSuccess) {
    return status;
  }
  const Statement statement = database.prepare(kInsertPassword);
  bindName(statement, name);
  bindValue(statement, value);
  const ItemStatus added = add(database, statement);
  return added == platform::itemSuccess ? commit(database) : added;
}

ItemStatus SqliteItemStore::updatePassword(const PasswordName &name, const SecretBytes &value) {
  Database database;
  const ItemStatus status = openPasswords(database);
  if (status != platform::itemSuccess) {
    return status;
  }
  const Statement statement = database.prepare(kUpdate);
  bindName(statement, name);
  bindValue(statement, value);
  return change(database, statement);
}

ItemStatus SqliteItemStore::deletePassword(const PasswordName &name) {
  Database database;
  const ItemStatus status = openPasswords(database);
  if (status != platform::itemSuccess) {
    return status;
  }
  const Statement statement = database.prepare(kDelete);
  bindName(statement, name);
  return change(database, statement);
}

}  // namespace platform_linux
