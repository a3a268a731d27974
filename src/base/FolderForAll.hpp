#pragma once

#include <string>

#include "base/Error.hpp"

namespace base {

// Makes a folder, and its missing parents, that programs of all users can read, whatever the umask.
// An existing folder is not changed. False, with the reason, if that fails.
[[nodiscard]] bool makeFolderForAll(const std::string &folder, Error *error = nullptr);

}  // namespace base
