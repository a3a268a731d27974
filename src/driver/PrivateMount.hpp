#pragma once

#include <string>
#include <string_view>

namespace driver {

// True if the mount at `path` is private to this program, as for services with PrivateTmp. That is
// either a subfolder of a file system that is also mounted elsewhere, or a tmpfs that does not
// belong to the machine's own mounts (mount_namespaces(7), shared and slave mounts). Assumes that
// the machine's /tmp is no mount, or the mount of a whole file system. `mountInfo` is the content
// of /proc/self/mountinfo (proc(5)); malformed lines are skipped.
[[nodiscard]] bool isPrivateMount(std::string_view mountInfo, std::string_view path);

// True if the marker's folder is private to this program, so that the daemon's marker is not
// visible in it: a private mount, or a folder of another owner.
[[nodiscard]] bool isMarkerFolderPrivate();

}  // namespace driver
