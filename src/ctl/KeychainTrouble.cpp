#include "ctl/KeychainTrouble.hpp"

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cstdint>
#include <string>

#include "base/Root.hpp"
#include "platform/ItemStore.hpp"

namespace ctl {
namespace {

using platform::StoreTrouble;

std::string keychainPath() {
  return base::rooted(kKeychainPath);
}

std::string keychainFolder() {
  const std::string path = keychainPath();
  return path.substr(0, path.rfind('/'));
}

std::string remedyFor(StoreTrouble trouble) {
  const std::string path = keychainPath();
  switch (trouble) {
    case StoreTrouble::openToOthers:
      return "sudo chmod 0600 " + path;
    case StoreTrouble::newerVersion:
      return "kfyctl --version";
    case StoreTrouble::damaged:
      return "sudo mv " + path + " " + path +
             ".damaged && sudo kfyctl identity create --common-name $(hostname)";
    case StoreTrouble::readOnly:
      return "sudo mount -o remount,rw $(findmnt -n -o TARGET --target " + keychainFolder() + ")";
    case StoreTrouble::full:
      return "df -h " + keychainFolder();
    case StoreTrouble::busy:
      return "sudo fuser -v " + path;
    case StoreTrouble::foreign:
    case StoreTrouble::none:
    case StoreTrouble::other:
      break;
  }
  // another user may not even learn what is wrong
  return ::geteuid() == 0 ? "sudo ls -l " + path : "sudo kfyctl status";
}

// Adds what the store's own message does not say.
const char *adviceFor(StoreTrouble trouble) {
  switch (trouble) {
    case StoreTrouble::damaged:
      return "; put a copy of it back, or begin a new one";
    case StoreTrouble::newerVersion:
      return "; install that version again";
    case StoreTrouble::readOnly:
      return "; what is stored can be read, but nothing be changed";
    case StoreTrouble::full:
      return "; what is stored can be read, but nothing be added until there is room";
    case StoreTrouble::busy:
      return "; another program has not let it go";
    case StoreTrouble::openToOthers:
    case StoreTrouble::foreign:
    case StoreTrouble::none:
    case StoreTrouble::other:
      break;
  }
  return "";
}

Failure failureOf(StoreTrouble trouble, const std::string &what) {
  return {what + adviceFor(trouble), remedyFor(trouble)};
}

}  // namespace

Failure keychainUnusable(const Invocation &invocation) {
  return failureOf(invocation.keychain->trouble(), invocation.keychainReport.empty()
                                                       ? "the keychain cannot be used"
                                                       : invocation.keychainReport);
}

std::optional<Failure> troubleAheadOfKeychain() {
  constexpr std::uint64_t kRoomForAChange = 64 * 1024;
  struct stat file{};
  struct statvfs disk{};
  if (::stat(keychainPath().c_str(), &file) != 0 ||
      ::statvfs(keychainFolder().c_str(), &disk) != 0) {
    return std::nullopt;
  }
  if (file.st_size == 0) {
    return failureOf(StoreTrouble::damaged,
                     keychainPath() + " is empty: nothing was ever added, or it was truncated");
  }
  if ((disk.f_flag & ST_RDONLY) != 0) {
    return failureOf(StoreTrouble::readOnly, keychainPath() + " is on a read-only disk");
  }
  if (std::uint64_t{disk.f_bavail} * disk.f_frsize < kRoomForAChange) {
    return failureOf(StoreTrouble::full, keychainPath() + " is on a full disk");
  }
  return std::nullopt;
}

}  // namespace ctl
