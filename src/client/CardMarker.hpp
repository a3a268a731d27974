#pragma once

#include <sys/types.h>
#include <time.h>

#include <optional>
#include <string>

namespace client {

// The daemon's sign that a card is there, as it was found: each insert makes it anew.
struct CardMarker {
  ino_t inode = 0;
  timespec modified{};
  timespec changed{};

  friend bool operator==(const CardMarker &left, const CardMarker &right);
};

// The folder that holds it, and its path, mapped under the root.
[[nodiscard]] std::string cardMarkerFolder();
[[nodiscard]] std::string cardMarkerPath();

// Whose markers count: root's, in a sandboxed root those of its folder's owner.
[[nodiscard]] uid_t ownerOfCardMarkers();

// The marker; nothing if none is there or what is there, which anybody may have put in its place,
// is not a regular file of that owner. A link is never followed. Blocks no longer than a look at a
// file.
[[nodiscard]] std::optional<CardMarker> findCardMarker();

}  // namespace client
