#pragma once

#include <sys/types.h>
#include <time.h>

#include <optional>
#include <string>

namespace client {

// The state of the file by which the daemon shows that a card is inserted. Each insertion creates
// the file anew.
struct CardMarker {
  ino_t inode = 0;
  timespec modified{};
  timespec changed{};

  friend bool operator==(const CardMarker &left, const CardMarker &right);
};

// The marker's folder and its path, below the root.
[[nodiscard]] std::string cardMarkerFolder();
[[nodiscard]] std::string cardMarkerPath();

// The user whose markers count: root, or the owner of a sandboxed root.
[[nodiscard]] uid_t ownerOfCardMarkers();

// Finds the marker. Nothing if there is none, or if the file is not a regular file of that owner:
// the folder is writable by everybody. Does not follow links. Blocks no longer than one lstat.
[[nodiscard]] std::optional<CardMarker> findCardMarker();

}  // namespace client
