#pragma once

#include "platform/Accounts.hpp"
#include "platform/LocalDirectory.hpp"

namespace fakes {

// Accounts whose existence, rules and failures the test chooses.
class FakeAccounts : public platform::LocalDirectory, public platform::Accounts {
 public:
  std::unique_ptr<platform::LocalNode> openLocalNode(Error *error) override {
    if (nodeError != 0) {
      base::reportErrno(error, nodeError, "no node");
      return nullptr;
    }
    return std::make_unique<Node>(*this);
  }
  std::unique_ptr<platform::Authorization> createAuthorization(std::int32_t &status) override {
    status = authorizationStatus;
    return std::make_unique<Right>(*this);
  }
  std::unique_ptr<platform::AccountIdentity> identityWithName(const std::string &name) override {
    return hasIdentity ? std::make_unique<Identity>(*this, name) : nullptr;
  }

  int nodeError = 0;
  std::size_t records = 1;  // how many the directory holds, whatever the name
  int refusals = 0;         // how many passwords the rules refuse before they accept one
  std::int32_t authorizationStatus = 0;
  std::int32_t rightStatus = 0;
  bool hasIdentity = true;
  int accountClass = platform::kUserClass;
  int failedCommits = 0;  // how many commits fail before one succeeds

  std::vector<std::string> asked;        // names, right and flags
  std::vector<std::string> offered;      // passwords the rules were asked about
  std::optional<std::string> committed;  // the password that was set

 private:
  struct Record : platform::DirectoryRecord {
    explicit Record(FakeAccounts &of) : accounts(of) {}
    bool passwordChangeAllowed(const SecretText &password, Error *) override {
      accounts.offered.emplace_back(password.reveal());
      return accounts.refusals-- <= 0;
    }
    FakeAccounts &accounts;
  };
  struct Node : platform::LocalNode {
    explicit Node(FakeAccounts &of) : accounts(of) {}
    std::optional<std::vector<std::shared_ptr<platform::DirectoryRecord>>> queryUsers(
        const std::string &name, Error *) override {
      accounts.asked.push_back(name);
      std::vector<std::shared_ptr<platform::DirectoryRecord>> found;
      for (std::size_t count = 0; count < accounts.records; ++count) {
        found.push_back(std::make_shared<Record>(accounts));
      }
      return found;
    }
    FakeAccounts &accounts;
  };
  struct Right : platform::Authorization {
    explicit Right(FakeAccounts &of) : accounts(of) {}
    std::int32_t copyRight(std::string_view right, std::uint32_t flags) override {
      accounts.asked.push_back(std::string(right) + " " + std::to_string(flags));
      return accounts.rightStatus;
    }
    FakeAccounts &accounts;
  };
  struct Identity : platform::AccountIdentity {
    Identity(FakeAccounts &of, const std::string &name) : accounts(of) {
      accounts.asked.push_back(name);
    }
    [[nodiscard]] int accountClass() const override { return accounts.accountClass; }
    void setPassword(const SecretText &password) override { text = password.reveal(); }
    bool commit(const platform::Authorization &) override {
      const bool succeeds = accounts.failedCommits-- <= 0;
      if (succeeds) {
        accounts.committed = text;
      }
      return succeeds;
    }
    FakeAccounts &accounts;
    std::string text;
  };
};

}  // namespace fakes
