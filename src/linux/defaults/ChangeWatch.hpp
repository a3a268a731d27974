#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "base/Descriptor.hpp"

namespace platform_linux {

// Tells whether files may have changed, come or gone, at a hundredth of the cost of looking at them
// (inotify(7)). The kernel notes a change before the call that makes it returns: who asks after a
// message came in learns of all that was changed before the message was sent.
//
// Some changes are not noted: by other machines, through a link, another name or a mapping of the
// file, by mounting something over it. So a file is watched only on a file system of this machine
// and if it is no link, and whatever is watched is looked at once a second all the same.
class ChangeWatch {
 public:
  // Absolute paths, mapped under the root. Neither they nor their folders need to be there.
  explicit ChangeWatch(std::vector<std::string> paths);

  // True if one of the files may have changed since the last call; always at the first one, and
  // where they can't be watched.
  [[nodiscard]] bool mayHaveChanged();

 private:
  [[nodiscard]] bool hasEvents() const;
  [[nodiscard]] bool watchAll() const;
  [[nodiscard]] bool watch(const std::string &path) const;

  std::vector<std::string> paths_;
  base::Descriptor inotify_;
  bool isWatched_ = false;  // all of them
  std::chrono::steady_clock::time_point lookAgainAt_;
};

}  // namespace platform_linux
