#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/UserDefaults.hpp"

namespace settings {

// What is wrong with one setting in a file.
struct SettingFault {
  std::string key;
  std::string wrong;    // "is true or false, not \"maybe\""
  std::string inForce;  // the value that counts instead, as it is written; empty: none
  std::string nearest;  // of a name that is unknown: the one that was probably meant; may be empty
};

// Finds unknown names, wrong types, numbers out of range and texts that are no boolean in a
// domain's file.
[[nodiscard]] std::vector<SettingFault> faultsIn(std::string_view domain,
                                                 std::span<const platform::StoredSetting> settings);

// All of it in a line.
[[nodiscard]] std::string lineOf(const SettingFault &fault);

// A line for each fault of a domain's file.
[[nodiscard]] std::vector<std::string> complaintsAbout(
    std::string_view domain, std::span<const platform::StoredSetting> settings);

}  // namespace settings
