#include "base/AccountFile.hpp"

#include <pwd.h>

#include <cerrno>
#include <cstdio>
#include <memory>

#include "base/Files.hpp"

namespace base {
namespace {

// No machine's account file comes near this size.
constexpr std::size_t kLargestFile = std::size_t{16} << 20;
constexpr std::size_t kLongestLine = std::size_t{64} * 1024;

}  // namespace

std::optional<std::vector<Account>> accountsNamed(const std::string &name, const std::string &path,
                                                  Error *error) {
  // The whole file is read before it is parsed: a read error in the middle must not hide accounts.
  auto content = readFile(path, kLargestFile, error);
  return content ? accountsIn(*content, name, error) : std::nullopt;
}

std::optional<std::vector<Account>> accountsIn(std::span<std::uint8_t> content,
                                               const std::string &name, Error *error) {
  std::vector<Account> accounts;
  if (content.empty()) {
    return accounts;
  }
  const std::unique_ptr<FILE, int (*)(FILE *)> file(
      ::fmemopen(content.data(), content.size(), "re"), std::fclose);
  if (!file) {
    reportErrno(error, errno, "cannot read accounts");
    return std::nullopt;
  }
  std::vector<char> buffer(kLongestLine);
  passwd entry{};
  passwd *found = nullptr;
  int status = 0;
  while ((status = ::fgetpwent_r(file.get(), &entry, buffer.data(), buffer.size(), &found)) == 0) {
    if (name == entry.pw_name) {
      accounts.push_back({entry.pw_name, entry.pw_uid, entry.pw_shell});
    }
  }
  if (status != ENOENT) {
    reportErrno(error, status, "cannot read accounts");
    return std::nullopt;
  }
  return accounts;
}

}  // namespace base
