#pragma once

#include <string>

namespace ctl {

enum class MarkerKind { absent, present, foreign };

// What stands in the place of the card marker: nothing; an empty file of root (in a sandboxed root:
// of the caller); or anything else, which programs do not trust.
struct MarkerInspection {
  MarkerKind kind = MarkerKind::absent;
  std::string path;
  std::string description;  // "absent", "a folder", "a file of uid 1000"
};

// Does not follow links.
[[nodiscard]] MarkerInspection inspectMarker();

}  // namespace ctl
