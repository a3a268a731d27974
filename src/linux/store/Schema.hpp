#pragma once

#include <cstdint>

#include "linux/store/Database.hpp"

namespace platform_linux {

// The version of a keychain's tables, kept as the file's user version; 0 is a file without any.
inline constexpr std::int64_t kSchema = 2;

// The first version that holds password items.
inline constexpr std::int64_t kSchemaWithPasswords = 2;

// Brings a file of any older version up to kSchema, inside the transaction of the caller, so that a
// file is never between two versions. False if the database fails.
[[nodiscard]] bool migrate(Database &database);

}  // namespace platform_linux
