#include "base/FolderForAll.hpp"

#include <sys/stat.h>

#include <cerrno>

#include "base/Files.hpp"

namespace base {

bool makeFolderForAll(const std::string &folder, Error *error) {
  constexpr unsigned kEnterableByAll = 0755;
  if (fileExists(folder)) {
    return true;
  }
  if (!makeFolders(folder, kEnterableByAll, error)) {
    return false;
  }
  if (::chmod(folder.c_str(), kEnterableByAll) != 0) {
    reportErrno(error, errno, "cannot open the folder " + folder + " to all");
    return false;
  }
  return true;
}

}  // namespace base
