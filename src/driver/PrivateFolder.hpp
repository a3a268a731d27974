#pragma once

#include <string>
#include <string_view>

namespace driver {

// True if what stands at `path` is a folder of a file system that this program also sees elsewhere,
// and not at that folder: so a service with a /tmp of its own finds it mounted, while the machine's
// own /tmp is no mount or the whole of one. `mountInfo` is the text of /proc/self/mountinfo
// (proc(5)); unusable lines in it are skipped.
[[nodiscard]] bool isBoundFolder(std::string_view mountInfo, std::string_view path);

// True if the folder of the card marker is this program's own, so that the daemon's marker does not
// show in it: bound as above, or not of the owner whose markers count.
[[nodiscard]] bool isMarkerFolderPrivate();

}  // namespace driver
