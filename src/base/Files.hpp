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

// Replaces a file atomically: writes a new file beside it, synchronises it and renames it over the
// old one. The new file has exactly `mode`, whatever the umask. False, with the reason in *error,
// if a step fails; the old file is then unchanged and no temporary file is left behind.
[[nodiscard]] bool replaceFile(const std::string &path, ByteView content, unsigned mode,
                               Error *error = nullptr);

// The same without synchronising, for a file whose content is worthless after the machine has
// crashed.
[[nodiscard]] bool replacePassingFile(const std::string &path, ByteView content, unsigned mode,
                                      Error *error = nullptr);

// Makes a folder and its missing parents. New folders get `mode` less the umask.
[[nodiscard]] bool makeFolders(const std::string &path, unsigned mode, Error *error = nullptr);

// True if the path exists. A link is followed.
[[nodiscard]] bool fileExists(const std::string &path);

}  // namespace base
