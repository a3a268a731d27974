#pragma once

#include <cstddef>
#include <memory>
#include <vector>

namespace remote {

// Limits the number and bytes of one machine's requests that wait for the person or a key, those of
// its earlier connections included. Used on the loop's thread; requests may end on any thread.
class UseQuota {
 public:
  // Adds a use with `bytes` of data. It counts until its last owner lets go. False, and nothing is
  // added, if too much waits.
  [[nodiscard]] bool tryAcquire(const std::shared_ptr<const void> &use, std::size_t bytes);

  // True if nothing waits.
  [[nodiscard]] bool isFree() const;

  // More than the programs of a machine use at once. For a slow key (RSA 4096) it is half a second
  // of work, for which another machine's requests may have to wait.
  static constexpr std::size_t kMostUses = 256;
  // Digests are short, but Ed25519 signs whole messages. This is twice the longest message that a
  // daemon passes on. A single use may be longer.
  static constexpr std::size_t kMostBytes = std::size_t{4} * 1024 * 1024;

 private:
  struct Entry {
    std::weak_ptr<const void> use;
    std::size_t bytes;
  };

  std::vector<Entry> waiting_;
};

}  // namespace remote
