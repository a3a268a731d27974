#pragma once

#include <atomic>
#include <functional>
#include <optional>
#include <string>

#include "platform/ItemStore.hpp"

namespace platform_linux {

class Database;
class Statement;

// The machine's keychain as an SQLite file, which is opened for each operation and closed behind
// it. A file that is not there is an empty keychain; the first item that is added makes it,
// mode 0600, and its folder, 0700. Other programs may use the file at the same time: an operation
// waits for them up to five seconds.
//
// The permissions are all that protects the keys, so a file that group or others can use in any
// way, or that belongs to someone else, counts as unusable. So does one that is no database, is
// damaged, cannot be written when it has to be, or was made by a newer version.
//
// Knows no tokens: searches for identities on tokens find nothing here.
class SqliteItemStore : public platform::ItemStore {
 public:
  // Is given one line, with the file and the cause, for each operation that met an unusable store
  // and for each identity in it that cannot be read (which counts as not there).
  using Reporter = std::function<void(const std::string &line)>;

  // `path` is used as given (see base::rooted).
  SqliteItemStore(std::string path, Reporter reporter);

  // In the order in which they were added. A query that asks for neither attributes nor references
  // gets references.
  [[nodiscard]] platform::IdentityMatches searchIdentities(
      const platform::IdentityQuery &query) override;

  // Computes the public-key hash if the record has none.
  [[nodiscard]] platform::ItemStatus addIdentity(
      const platform::IdentityRecord &record,
      const std::optional<std::string> &accessGroup) override;

  [[nodiscard]] platform::ItemStatus deleteIdentity(ByteView certificateSHA1) override;

  // The password items. A file of the version before them holds none, and gets their table with the
  // first item that is added.
  [[nodiscard]] platform::PasswordMatch searchPassword(const platform::PasswordName &name,
                                                       bool returnData) override;
  [[nodiscard]] platform::ItemStatus addPassword(const platform::PasswordName &name,
                                                 const SecretBytes &value) override;
  [[nodiscard]] platform::ItemStatus updatePassword(const platform::PasswordName &name,
                                                    const SecretBytes &value) override;
  [[nodiscard]] platform::ItemStatus deletePassword(const platform::PasswordName &name) override;

  [[nodiscard]] platform::StoreTrouble trouble() const override { return trouble_; }

 private:
  // Opens the file if it is there and fit to be used; the status tells why not.
  [[nodiscard]] platform::ItemStatus open(Database &database);
  [[nodiscard]] bool create();
  // Opens the file, which is made where it has to be, and begins a transaction that ends with the
  // database. Gives success or the status of an unusable store.
  [[nodiscard]] platform::ItemStatus beginAdding(Database &database);
  // The same for a change of password items: not found where the file has no table of them.
  [[nodiscard]] platform::ItemStatus openPasswords(Database &database);
  [[nodiscard]] platform::ItemStatus commit(Database &database);
  // The status after a statement that changes existing items.
  [[nodiscard]] platform::ItemStatus change(Database &database, const Statement &statement);
  // Runs the statement that adds an item; nothing is committed yet.
  [[nodiscard]] platform::ItemStatus add(Database &database, const Statement &insertion);
  [[nodiscard]] platform::ItemStatus insert(Database &database,
                                            const platform::IdentityRecord &record,
                                            const std::optional<std::string> &accessGroup);
  // Reports the cause and gives the status of an unusable store.
  platform::ItemStatus unusable(platform::StoreTrouble trouble, const std::string &cause);
  platform::ItemStatus unusable(const Database &database);

  std::string path_;
  Reporter reporter_;
  std::atomic<platform::StoreTrouble> trouble_ = platform::StoreTrouble::none;
};

}  // namespace platform_linux
