#pragma once

#include <string>
#include <string_view>

namespace base {

// The folder under which the whole system runs: $KFYD_ROOT if it is set and the program was not
// started with raised privileges, else "". Read once.
[[nodiscard]] const std::string &root();

// Where a path lies under the root. Fields and messages hold the system's own names; this
// mapping happens at the system call. A path that is already below the root is mapped all the same.
// Where a root is set, neither a relative path, which counts from it, nor ".." leads out of it.
[[nodiscard]] std::string rooted(std::string_view path);

}  // namespace base
