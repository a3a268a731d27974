#include "support/CVNRealHomeFolder.hpp"

#include <pwd.h>

#include <cstdio>
#include <memory>

#include "base/Root.hpp"

namespace {

constexpr const char *kNoHome = "/nonexistent";

std::string homeOf(const passwd *entry) {
  return entry != nullptr && entry->pw_dir != nullptr ? entry->pw_dir : kNoHome;
}

}  // namespace

std::string realHomeFolder(uid_t realUserID) {
  if (base::root().empty()) {
    return homeOf(getpwuid(realUserID));
  }
  const std::unique_ptr<FILE, int (*)(FILE *)> file(
      std::fopen(base::rooted("/etc/passwd").c_str(), "re"), std::fclose);
  if (!file) {
    return kNoHome;
  }
  while (const passwd *entry = fgetpwent(file.get())) {
    if (entry->pw_uid == realUserID) {
      return homeOf(entry);
    }
  }
  return kNoHome;
}
