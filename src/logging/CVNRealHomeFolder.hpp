#pragma once

#include <sys/types.h>

#include <string>

// The home folder that the user database records for this real user id, not one from the
// environment;
// "/nonexistent" where it has no entry. In a sandboxed root the user database is the root's own.
[[nodiscard]] std::string realHomeFolder(uid_t realUserID);
