#include "linux/defaults/ChangeWatch.hpp"

#include <linux/magic.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <utility>

#include "base/Root.hpp"

namespace platform_linux {
namespace {

constexpr std::chrono::seconds kBetweenLooks{1};

// Of the folders on the way to a file: where they are, and what comes and goes in them.
constexpr std::uint32_t kOnTheWay = IN_ATTRIB | IN_CREATE | IN_DELETE | IN_MOVED_FROM |
                                    IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_MASK_ADD |
                                    IN_ONLYDIR | IN_DONT_FOLLOW;

// Of the file's own folder.
constexpr std::uint32_t kAtTheEnd = kOnTheWay | IN_MODIFY;

// Whether changes on this file system are made by this machine alone, so that the kernel sees all.
bool isOfThisMachine(const std::string &folder) {
  constexpr long kZFS = 0x2FC12FC1;  // stands in no header of the system
  constexpr std::array kKinds{long{EXT4_SUPER_MAGIC},      long{BTRFS_SUPER_MAGIC},
                              long{F2FS_SUPER_MAGIC},      long{TMPFS_MAGIC},
                              long{RAMFS_MAGIC},           long{XFS_SUPER_MAGIC},
                              long{OVERLAYFS_SUPER_MAGIC}, kZFS};
  struct statfs status{};
  return ::statfs(folder.c_str(), &status) == 0 &&
         std::ranges::find(kKinds, static_cast<long>(status.f_type)) != kKinds.end();
}

}  // namespace

ChangeWatch::ChangeWatch(std::vector<std::string> paths)
    : paths_(std::move(paths)), inotify_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {}

bool ChangeWatch::mayHaveChanged() {
  const auto now = std::chrono::steady_clock::now();
  if (isWatched_ && now < lookAgainAt_ && !hasEvents()) {
    return false;
  }
  isWatched_ = false;  // also if memory runs out: the events are gone
  isWatched_ = watchAll();
  lookAgainAt_ = now + kBetweenLooks;
  return true;
}

// One read, however many there are: those that are left will be found the next time.
bool ChangeWatch::hasEvents() const {
  alignas(inotify_event) std::array<char, 4096> events;
  return ::read(inotify_.get(), events.data(), events.size()) > 0;
}

bool ChangeWatch::watchAll() const {
  return inotify_.isOpen() &&
         std::ranges::all_of(paths_, [this](const std::string &path) { return watch(path); });
}

// From the first folder on: one that does not exist yet shows in the folder before it.
bool ChangeWatch::watch(const std::string &path) const {
  const std::string file = base::rooted(path);
  const std::size_t last = file.rfind('/');
  for (std::size_t slash = 0; slash != std::string::npos; slash = file.find('/', slash + 1)) {
    const std::string folder = file.substr(0, std::max<std::size_t>(slash, 1));
    if (::inotify_add_watch(inotify_.get(), folder.c_str(), slash == last ? kAtTheEnd : kOnTheWay) <
        0) {
      return errno == ENOENT;
    }
    if (!isOfThisMachine(folder)) {
      return false;
    }
  }
  struct stat status{};
  return ::lstat(file.c_str(), &status) == 0 ? !S_ISLNK(status.st_mode) && status.st_nlink <= 1
                                             : errno == ENOENT;
}

}  // namespace platform_linux
