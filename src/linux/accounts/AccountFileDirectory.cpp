#include "linux/accounts/AccountFileDirectory.hpp"

#include <unistd.h>

#include <cerrno>
#include <utility>

#include "base/AccountFile.hpp"
#include "base/Root.hpp"
#include "linux/accounts/PasswordRules.hpp"

namespace platform_linux {
namespace {

class AccountRecord : public platform::DirectoryRecord {
 public:
  AccountRecord(std::string name, AccountFileDirectory::Reporter reporter)
      : name_(std::move(name)), reporter_(std::move(reporter)) {}

  [[nodiscard]] bool passwordChangeAllowed(const SecretText &password, Error *error) override {
    return passwordRulesAccept(password, name_, reporter_, error);
  }

 private:
  std::string name_;
  AccountFileDirectory::Reporter reporter_;
};

class AccountFileNode : public platform::LocalNode {
 public:
  AccountFileNode(std::string path, AccountFileDirectory::Reporter reporter)
      : path_(std::move(path)), reporter_(std::move(reporter)) {}

  [[nodiscard]] std::optional<std::vector<std::shared_ptr<platform::DirectoryRecord>>> queryUsers(
      const std::string &name, Error *error) override {
    const auto accounts = base::accountsNamed(name, path_, error);
    if (!accounts) {
      return std::nullopt;
    }
    std::vector<std::shared_ptr<platform::DirectoryRecord>> records;
    records.reserve(accounts->size());
    for (const base::Account &account : *accounts) {
      records.push_back(std::make_shared<AccountRecord>(account.name, reporter_));
    }
    return records;
  }

 private:
  std::string path_;
  AccountFileDirectory::Reporter reporter_;
};

}  // namespace

std::unique_ptr<platform::LocalNode> AccountFileDirectory::openLocalNode(Error *error) {
  std::string path = base::rooted("/etc/passwd");
  if (::access(path.c_str(), R_OK) != 0) {
    base::reportErrno(error, errno, "cannot read " + path);
    return nullptr;
  }
  return std::make_unique<AccountFileNode>(std::move(path), reporter_);
}

}  // namespace platform_linux
