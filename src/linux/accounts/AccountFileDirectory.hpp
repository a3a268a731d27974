#pragma once

#include <functional>
#include <string>

#include "platform/LocalDirectory.hpp"

namespace platform_linux {

// The accounts of the root's account file, and the machine's rules for their passwords.
class AccountFileDirectory : public platform::LocalDirectory {
 public:
  using Reporter = std::function<void(const std::string &line)>;

  explicit AccountFileDirectory(Reporter reporter) : reporter_(std::move(reporter)) {}

  [[nodiscard]] std::unique_ptr<platform::LocalNode> openLocalNode(Error *error) override;

 private:
  Reporter reporter_;
};

}  // namespace platform_linux
