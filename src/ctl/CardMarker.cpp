#include "ctl/CardMarker.hpp"

#include <sys/stat.h>

#include "base/Root.hpp"

namespace ctl {
namespace {

constexpr const char *kMarker = "/tmp/scinsert";

std::string kindOf(mode_t mode) {
  if (S_ISREG(mode)) {
    return "a file";
  }
  if (S_ISLNK(mode)) {
    return "a link";
  }
  return S_ISDIR(mode) ? "a folder" : "something else than a file";
}

// Whose markers count: root's, in a sandboxed root those of its folder's owner.
uid_t ownerOfMarkers() {
  struct stat folder{};
  return !base::root().empty() && ::stat(base::root().c_str(), &folder) == 0 ? folder.st_uid : 0;
}

}  // namespace

MarkerState lookAtCardMarker() {
  MarkerState state;
  state.path = base::rooted(kMarker);
  struct stat status{};
  if (::lstat(state.path.c_str(), &status) != 0) {
    state.description = "absent";
    return state;
  }
  const bool isTrusted = S_ISREG(status.st_mode) && status.st_uid == ownerOfMarkers();
  state.kind = isTrusted ? CardMarker::present : CardMarker::foreign;
  state.description = kindOf(status.st_mode) + " of uid " + std::to_string(status.st_uid);
  return state;
}

}  // namespace ctl
