#include "ctl/MarkerInspection.hpp"

#include <sys/stat.h>

#include "client/CardMarker.hpp"

namespace ctl {
namespace {

std::string kindOf(mode_t mode) {
  if (S_ISREG(mode)) {
    return "a file";
  }
  if (S_ISLNK(mode)) {
    return "a link";
  }
  return S_ISDIR(mode) ? "a folder" : "something else than a file";
}

}  // namespace

MarkerInspection inspectMarker() {
  MarkerInspection state;
  state.path = client::cardMarkerPath();
  struct stat status{};
  if (::lstat(state.path.c_str(), &status) != 0) {
    state.description = "absent";
    return state;
  }
  state.kind = client::findCardMarker() ? MarkerKind::present : MarkerKind::foreign;
  state.description = kindOf(status.st_mode) + " of uid " + std::to_string(status.st_uid);
  return state;
}

}  // namespace ctl
