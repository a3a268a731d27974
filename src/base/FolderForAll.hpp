#pragma once

#include <string>

#include "base/Error.hpp"

namespace base {

// Makes a folder, with the missing ones above it, for programs of all users to look into, whatever
// the umask says; one that is there stays as it is. False, with the reason, if that fails.
[[nodiscard]] bool makeFolderForAll(const std::string &folder, Error *error = nullptr);

}  // namespace base
