#include "driver/PrivateFolder.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <sstream>
#include <vector>

#include "base/Files.hpp"
#include "client/CardMarker.hpp"

namespace driver {
namespace {

constexpr std::size_t kLargestMountInfo = std::size_t{4} * 1024 * 1024;

struct Mount {
  std::string device;  // "major:minor"
  std::string root;    // the folder of the file system that is mounted
  std::string point;
};

std::vector<Mount> mountsIn(std::string_view mountInfo) {
  std::vector<Mount> mounts;
  std::istringstream lines{std::string(mountInfo)};
  for (std::string line; std::getline(lines, line);) {
    std::istringstream fields(line);
    std::string number;
    std::string parent;
    Mount mount;
    if (fields >> number >> parent >> mount.device >> mount.root >> mount.point) {
      mounts.push_back(std::move(mount));
    }
  }
  return mounts;
}

bool isBelow(const std::string &path, const std::string &folder) {
  return path.starts_with(folder.ends_with('/') ? folder : folder + "/") && path != folder;
}

}  // namespace

bool isBoundFolder(std::string_view mountInfo, std::string_view path) {
  const std::vector<Mount> mounts = mountsIn(mountInfo);
  // of several at one place, the last one is seen
  const auto here = std::ranges::find(mounts.rbegin(), mounts.rend(), path, &Mount::point);
  return here != mounts.rend() && std::ranges::any_of(mounts, [&](const Mount &other) {
           return other.device == here->device && isBelow(here->root, other.root);
         });
}

bool isMarkerFolderPrivate() {
  const std::string folder = client::cardMarkerFolder();
  struct stat status{};
  if (::stat(folder.c_str(), &status) != 0 || status.st_uid != client::ownerOfCardMarkers()) {
    return true;
  }
  const auto mountInfo = base::readFile("/proc/self/mountinfo", kLargestMountInfo);
  return mountInfo && isBoundFolder(base::textOf(*mountInfo), folder);
}

}  // namespace driver
