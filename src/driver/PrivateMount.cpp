#include "driver/PrivateMount.hpp"

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
  std::string root;    // the mounted folder within the file system
  std::string point;
  bool isShared = false;  // mount events propagate to other mount namespaces,
  bool isSlave = false;   // or from them to this one
  std::string type;       // the file system type
};

// Reads the optional fields, which end with a hyphen, and the type.
void readRest(std::istream &fields, Mount &mount) {
  std::string field;
  while (fields >> field && field != "-") {
    mount.isShared = mount.isShared || field.starts_with("shared:");
    mount.isSlave = mount.isSlave || field.starts_with("master:");
  }
  fields >> mount.type;
}

std::vector<Mount> mountsIn(std::string_view mountInfo) {
  std::vector<Mount> mounts;
  std::istringstream lines{std::string(mountInfo)};
  for (std::string line; std::getline(lines, line);) {
    std::istringstream fields(line);
    std::string number;
    std::string parent;
    std::string options;
    Mount mount;
    if (fields >> number >> parent >> mount.device >> mount.root >> mount.point >> options) {
      readRest(fields, mount);
      mounts.push_back(std::move(mount));
    }
  }
  return mounts;
}

// The last mount at a path hides the earlier ones.
const Mount *mountAt(std::string_view path, const std::vector<Mount> &mounts) {
  const auto found = std::ranges::find(mounts.rbegin(), mounts.rend(), path, &Mount::point);
  return found == mounts.rend() ? nullptr : &*found;
}

bool isBelow(const std::string &path, const std::string &folder) {
  return path.starts_with(folder.ends_with('/') ? folder : folder + "/") && path != folder;
}

bool isPartOfAnother(const Mount &mount, const std::vector<Mount> &mounts) {
  return std::ranges::any_of(mounts, [&](const Mount &other) {
    return other.device == mount.device && isBelow(mount.root, other.root);
  });
}

// The machine's own mounts have the same propagation type as its root. A mount made for this
// program alone is not shared, or has no master although the root has one.
bool isOwnMemory(const Mount &mount, const std::vector<Mount> &mounts) {
  const Mount *const top = mountAt("/", mounts);
  const bool spreads = mount.isShared || mount.isSlave;
  const bool isOfTheMachine =
      spreads && top != nullptr && mount.isShared == top->isShared && mount.isSlave == top->isSlave;
  return mount.type == "tmpfs" && !isOfTheMachine;
}

}  // namespace

bool isPrivateMount(std::string_view mountInfo, std::string_view path) {
  const std::vector<Mount> mounts = mountsIn(mountInfo);
  const Mount *const here = mountAt(path, mounts);
  return here != nullptr && (isPartOfAnother(*here, mounts) || isOwnMemory(*here, mounts));
}

bool isMarkerFolderPrivate() {
  const std::string folder = client::cardMarkerFolder();
  struct stat status{};
  if (::stat(folder.c_str(), &status) != 0 || status.st_uid != client::ownerOfCardMarkers()) {
    return true;
  }
  const auto mountInfo = base::readFile("/proc/self/mountinfo", kLargestMountInfo);
  return mountInfo && isPrivateMount(base::textOf(*mountInfo), folder);
}

}  // namespace driver
