#include "linux/accounts/ShadowAccounts.hpp"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/AccountFile.hpp"
#include "base/Files.hpp"
#include "base/Root.hpp"

namespace platform_linux {
namespace {

constexpr const char *kChangeTool = "/usr/sbin/chpasswd";
// A locked shadow file is waited for by the tool. Each attempt holds the queue of the daemon, and
// there are ten.
constexpr std::chrono::seconds kChangeTime{5};

constexpr std::int32_t kRightDenied = -60005;
constexpr int kSystemClass = 0;
constexpr uid_t kFirstUserID = 1000;
constexpr std::size_t kLargestFile = std::size_t{1} << 20;

class EffectiveUserAuthorization : public platform::Authorization {
 public:
  [[nodiscard]] std::int32_t copyRight(std::string_view /*right*/,
                                       std::uint32_t /*flags*/) override {
    return ::geteuid() == 0 ? 0 : kRightDenied;
  }
};

// The lines of a file of the root; none if it can't be read.
std::vector<std::string> linesOf(const char *path) {
  const auto content = base::readFile(base::rooted(path), kLargestFile);
  std::vector<std::string> lines;
  std::string_view rest = content ? base::textOf(*content) : std::string_view();
  while (!rest.empty()) {
    const std::size_t end = rest.find('\n');
    lines.emplace_back(rest.substr(0, end));
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  }
  return lines;
}

// UID_MIN of login.defs(5).
uid_t firstUserID() {
  for (const std::string &line : linesOf("/etc/login.defs")) {
    constexpr std::string_view kKey = "UID_MIN";
    if (!line.starts_with(kKey)) {
      continue;
    }
    const std::size_t start = line.find_first_not_of(" \t", kKey.size());
    uid_t value = 0;
    if (start != std::string::npos && start > kKey.size() &&
        std::from_chars(line.data() + start, line.data() + line.size(), value).ec == std::errc{}) {
      return value;
    }
  }
  return kFirstUserID;
}

bool isLoginShell(const std::string &shell) {
  const std::vector<std::string> shells = linesOf("/etc/shells");
  return !shell.empty() && std::ranges::find(shells, shell) != shells.end();
}

class ShadowAccount : public platform::AccountIdentity {
 public:
  ShadowAccount(base::Account account, platform::ToolRunner &tools)
      : account_(std::move(account)), tools_(tools) {}

  [[nodiscard]] int accountClass() const override {
    const bool isUser = account_.userID >= firstUserID() || isLoginShell(account_.shell);
    return isUser ? platform::kUserClass : kSystemClass;
  }

  void setPassword(const SecretText &password) override {
    CleansedBytes line;
    const auto add = [&](std::string_view text) {
      const ByteView bytes = base::viewOf(text);
      line.insert(line.end(), bytes.begin(), bytes.end());
    };
    add(account_.name);
    add(":");
    add(password.reveal());
    add("\n");
    line_ = SecretBytes(std::move(line));
  }

  [[nodiscard]] bool commit(const platform::Authorization & /*authorization*/) override {
    std::vector<std::string> arguments;
    if (!base::root().empty()) {
      arguments = {"-c", "YESCRYPT", "--root", base::root()};
    }
    return tools_.statusOf(kChangeTool, arguments, line_, kChangeTime) == 0;
  }

 private:
  base::Account account_;
  platform::ToolRunner &tools_;
  SecretBytes line_;  // as chpasswd(8) reads it
};

}  // namespace

std::unique_ptr<platform::Authorization> ShadowAccounts::createAuthorization(std::int32_t &status) {
  status = 0;
  return std::make_unique<EffectiveUserAuthorization>();
}

std::unique_ptr<platform::AccountIdentity> ShadowAccounts::identityWithName(
    const std::string &name) {
  auto accounts = base::accountsNamed(name, base::rooted("/etc/passwd"));
  if (!accounts || accounts->size() != 1) {
    return nullptr;
  }
  return std::make_unique<ShadowAccount>(std::move(accounts->front()), tools_);
}

}  // namespace platform_linux
