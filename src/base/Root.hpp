#pragma once

#include <string>
#include <string_view>

namespace base {

// The folder under which the whole system runs: $KFYD_ROOT if it is set and the program was not
// started with raised privileges, else "". Read once.
[[nodiscard]] const std::string &root();

// Maps a path under the root. Fields and messages hold unmapped paths; a path is mapped right
// before the system call. A path that is already below the root is mapped again. Where a root is
// set, a relative path starts at it, and ".." does not lead out of it.
[[nodiscard]] std::string rooted(std::string_view path);

}  // namespace base
