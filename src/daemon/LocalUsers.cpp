#include "daemon/LocalUsers.hpp"

#include <sstream>
#include <utility>

#include "base/AccountFile.hpp"
#include "base/Root.hpp"
#include "logging/CVNLog.hpp"
#include "settings/Settings.hpp"

namespace kfyd {
namespace {

constexpr const char *kAccountFile = "/etc/passwd";

// Adds the ids of the accounts with this name; returns what is wrong with it, if anything.
std::string addAccounts(const std::string &name, std::vector<std::uint32_t> &users) {
  Error error;
  const auto accounts = base::accountsNamed(name, base::rooted(kAccountFile), &error);
  if (!accounts) {
    return error.description;
  }
  for (const base::Account &account : *accounts) {
    users.push_back(account.userID);
  }
  return accounts->empty() ? "no account is named " + name : "";
}

}  // namespace

std::optional<std::vector<std::uint32_t>> LocalUsers::allowed() {
  std::istringstream names(
      defaults_.text(platform::kStandardDefaults, settings::kLocalUsers.key).value_or(""));
  std::optional<std::vector<std::uint32_t>> users;
  std::string complaint;
  for (std::string name; names >> name;) {
    if (!users) {
      users.emplace();
    }
    const std::string fault = addAccounts(name, *users);
    complaint += (complaint.empty() || fault.empty() ? "" : "; ") + fault;
  }
  complain(std::move(complaint));
  return users;
}

void LocalUsers::complain(std::string complaint) {
  if (!complaint.empty() && complaint != complaint_) {
    CVNLog("localUsers: %s", complaint);
  }
  complaint_ = std::move(complaint);
}

}  // namespace kfyd
