#include "client/CardMarker.hpp"

#include <sys/stat.h>

#include "base/Places.hpp"
#include "base/Root.hpp"

namespace client {
namespace {

bool areEqual(const timespec &left, const timespec &right) {
  return left.tv_sec == right.tv_sec && left.tv_nsec == right.tv_nsec;
}

}  // namespace

bool operator==(const CardMarker &left, const CardMarker &right) {
  return left.inode == right.inode && areEqual(left.modified, right.modified) &&
         areEqual(left.changed, right.changed);
}

std::string cardMarkerFolder() {
  return base::rooted(base::kCardMarkerFolder);
}

std::string cardMarkerPath() {
  return base::rooted(base::kCardMarker);
}

uid_t ownerOfCardMarkers() {
  struct stat folder{};
  return !base::root().empty() && ::stat(base::root().c_str(), &folder) == 0 ? folder.st_uid : 0;
}

std::optional<CardMarker> findCardMarker() {
  struct stat status{};
  if (::lstat(cardMarkerPath().c_str(), &status) != 0 || !S_ISREG(status.st_mode) ||
      status.st_uid != ownerOfCardMarkers()) {
    return std::nullopt;
  }
  return CardMarker{status.st_ino, status.st_mtim, status.st_ctim};
}

}  // namespace client
