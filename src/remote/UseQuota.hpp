#pragma once

#include <cstddef>
#include <memory>
#include <vector>

namespace remote {

// Bounds what the requests of one machine hold here while they wait for a person and for a key,
// those of its former connections included. Used from the loop's thread; the requests may end on
// any.
class UseQuota {
 public:
  // False, and nothing is noted, if too much waits. `use` counts until nobody holds it any more,
  // with `bytes` of data.
  [[nodiscard]] bool admits(const std::shared_ptr<const void> &use, std::size_t bytes);

  // True if nothing waits.
  [[nodiscard]] bool isFree() const;

  // More than the programs of a machine use at once, and for a slow key (RSA 4096) half a second of
  // work, which is how long another machine's requests may have to wait for these.
  static constexpr std::size_t kMostUses = 256;
  // Digests are short. Ed25519 signs whole messages: this is two of the longest that a daemon
  // passes on. One alone may be longer.
  static constexpr std::size_t kMostBytes = std::size_t{4} * 1024 * 1024;

 private:
  struct Entry {
    std::weak_ptr<const void> use;
    std::size_t bytes;
  };

  std::vector<Entry> waiting_;
};

}  // namespace remote
