#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/UserDefaults.hpp"

namespace kfyd {

// Who may use the loopback listener beside root: the setting `localUsers`.
class LocalUsers {
 public:
  explicit LocalUsers(platform::UserDefaults &defaults) : defaults_(defaults) {}

  // Their user ids, looked up in the account file at each call. Nothing if everybody is admitted. A
  // name without an account, or an unreadable account file, admits nobody; this is logged once
  // until it changes.
  [[nodiscard]] std::optional<std::vector<std::uint32_t>> allowed();

 private:
  void complain(std::string complaint);

  platform::UserDefaults &defaults_;
  std::string complaint_;  // the last one; empty: all names were found
};

}  // namespace kfyd
