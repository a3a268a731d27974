#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/Error.hpp"
#include "base/Secret.hpp"

namespace platform {

// The record of one user of this machine.
class DirectoryRecord {
 public:
  virtual ~DirectoryRecord() = default;

  // True if the machine's password rules accept this password for the user; otherwise false with
  // the reason. May read files.
  [[nodiscard]] virtual bool passwordChangeAllowed(const SecretText &password,
                                                   Error *error = nullptr) = 0;
};

// The accounts that exist on this machine itself, as they are while this object lives.
class LocalNode {
 public:
  virtual ~LocalNode() = default;

  // All users with exactly this name, in the order of the accounts; the list may be empty. Nothing,
  // with the reason, if the accounts can't be read completely.
  [[nodiscard]] virtual std::optional<std::vector<std::shared_ptr<DirectoryRecord>>> queryUsers(
      const std::string &name, Error *error = nullptr) = 0;
};

// Looks accounts up on this machine, never in a network.
class LocalDirectory {
 public:
  virtual ~LocalDirectory() = default;

  // Opens the local node anew; null, with the reason, if that is not possible.
  [[nodiscard]] virtual std::unique_ptr<LocalNode> openLocalNode(Error *error = nullptr) = 0;
};

}  // namespace platform
