#pragma once

#include <string>
#include <string_view>

namespace base {

// The folder under which the whole system runs: $KFYD_ROOT if it is set and the program was not
// started with raised privileges, else "". Read once.
[[nodiscard]] const std::string &root();

// Where an absolute path lies under the root. Fields and messages hold the system's own names; this
// mapping happens at the system call. A path that is already below the root is mapped all the same.
[[nodiscard]] std::string rooted(std::string_view absolutePath);

}  // namespace base
