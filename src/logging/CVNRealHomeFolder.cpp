#include "logging/CVNRealHomeFolder.hpp"

#include <pwd.h>

#include <cstddef>
#include <cstdio>
#include <memory>
#include <vector>

#include "base/Root.hpp"

namespace {

constexpr const char *kNoHome = "/nonexistent";

constexpr std::size_t kLongestEntry = std::size_t{64} * 1024;

}  // namespace

std::string realHomeFolder(uid_t realUserID) {
  std::vector<char> buffer(kLongestEntry);
  passwd entry{};
  passwd *found = nullptr;
  if (base::root().empty()) {
    getpwuid_r(realUserID, &entry, buffer.data(), buffer.size(), &found);
  } else {
    const std::unique_ptr<FILE, int (*)(FILE *)> file(
        std::fopen(base::rooted("/etc/passwd").c_str(), "re"), std::fclose);
    while (file && fgetpwent_r(file.get(), &entry, buffer.data(), buffer.size(), &found) == 0 &&
           found->pw_uid != realUserID) {
    }
  }
  return found != nullptr && found->pw_dir != nullptr ? found->pw_dir : kNoHome;
}
