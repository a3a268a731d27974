#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "base/Bytes.hpp"
#include "base/Error.hpp"
#include "base/Secret.hpp"

namespace base {

// Reads a whole regular file of at most `limit` bytes; `path` is used as given (see rooted).
// Nothing, with the reason in *error, if it can't be read, is no regular file or is larger.
[[nodiscard]] std::optional<CleansedBytes> readFile(const std::string &path, std::size_t limit,
                                                    Error *error = nullptr);

// Replaces a file atomically: a new file beside it with exactly `mode` whatever the umask says,
// written, synchronised, renamed over it. False, with the reason in *error, if any step fails; the
// old file then stays as it was and nothing is left behind.
[[nodiscard]] bool replaceFile(const std::string &path, ByteView content, unsigned mode,
                               Error *error = nullptr);

// The same without waiting for the disk, for a file that means nothing after a crash of the
// machine.
[[nodiscard]] bool replacePassingFile(const std::string &path, ByteView content, unsigned mode,
                                      Error *error = nullptr);

// Makes a folder and the missing ones above it, the new ones with `mode` less the umask.
[[nodiscard]] bool makeFolders(const std::string &path, unsigned mode, Error *error = nullptr);

// True if something stands at the path; a link counts as what it points to.
[[nodiscard]] bool fileExists(const std::string &path);

}  // namespace base
