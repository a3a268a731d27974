#pragma once

#include <string>
#include <vector>

namespace platform {

// Knows which smart-card tokens are present.
class TokenWatcher {
 public:
  virtual ~TokenWatcher() = default;

  // The IDs of the tokens present now, in a stable order. May block on token hardware.
  [[nodiscard]] virtual std::vector<std::string> tokenIDs() = 0;
};

}  // namespace platform
