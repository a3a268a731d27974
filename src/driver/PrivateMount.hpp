#pragma once

#include <string>
#include <string_view>

namespace driver {

// True if what stands at `path` was mounted for this program, as services with a /tmp of their own
// find it: either a folder of a file system that the program also sees elsewhere, and not at that
// folder, or a tmpfs that does not come from the machine's own mounts (mount_namespaces(7), shared
// and slave mounts), while the machine's /tmp is no mount or the whole of one. `mountInfo` is the
// text of /proc/self/mountinfo (proc(5)); unusable lines in it are skipped.
[[nodiscard]] bool isPrivateMount(std::string_view mountInfo, std::string_view path);

// True if the folder of the card marker is this program's own, so that the daemon's marker does not
// show in it: mounted as above, or not of the owner whose markers count.
[[nodiscard]] bool isMarkerFolderPrivate();

}  // namespace driver
