#include "ctl/AccountFile.hpp"

#include <pwd.h>

#include <cstdio>
#include <memory>

#include "base/Root.hpp"

namespace ctl {
namespace {

struct FileCloser {
  void operator()(std::FILE *file) const { std::fclose(file); }
};

}  // namespace

bool accountFileHas(const std::string &user) {
  const std::unique_ptr<std::FILE, FileCloser> file(
      std::fopen(base::rooted("/etc/passwd").c_str(), "re"));
  if (!file) {
    return false;
  }
  while (const passwd *entry = ::fgetpwent(file.get())) {
    if (user == entry->pw_name) {
      return true;
    }
  }
  return false;
}

}  // namespace ctl
