#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace driver {

// Whether programs are asked for a PIN, `pinMode` in the settings.
enum class PinMode {
  none,         // "none": no login; requests carry no PIN
  pass,         // "pass": programs log in, and requests carry the PIN that they gave
  atTheHolder,  // "protected": programs log in without a PIN, which the key's holder asks for
};

// What /etc/keyferry/pkcs11.toml says.
struct DriverSettings {
  std::chrono::seconds timeLimit{60};  // `timeLimitSeconds`, at least 1: one use of a key
  PinMode pinMode = PinMode::none;
  bool showEd25519 = false;  // `showEd25519`: some programs fail on all keys beside one
};

// Reads them. A value that can't be used, or a file that can't, counts as absent and is told to
// `report` in one line.
[[nodiscard]] DriverSettings readDriverSettings(
    const std::function<void(const std::string &line)> &report);

}  // namespace driver
