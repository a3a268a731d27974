#pragma once

#include <string>

namespace ctl {

enum class MarkerKind { absent, present, foreign };

// What stands where the daemon puts its sign that a card is there: nothing, an empty file of root's
// (in a sandboxed root: of the caller's), or anything else, which programs do not trust.
struct MarkerInspection {
  MarkerKind kind = MarkerKind::absent;
  std::string path;
  std::string description;  // "absent", "a folder", "a file of uid 1000"
};

// Looks at the thing itself, never at what a link points to.
[[nodiscard]] MarkerInspection inspectMarker();

}  // namespace ctl
