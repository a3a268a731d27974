#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace driver {

// How programs log in: the setting `pinMode`.
enum class PinMode {
  none,         // "none": no login, requests have no PIN
  pass,         // "pass": programs log in with a PIN, which is sent with requests
  atTheHolder,  // "protected": programs log in without a PIN; the key's holder asks for it
};

// The settings in /etc/keyferry/pkcs11.toml.
struct DriverSettings {
  std::chrono::seconds timeLimit{60};  // `timeLimitSeconds`, at least 1: limit of one request
  PinMode pinMode = PinMode::none;
  bool showEd25519 = false;  // `showEd25519`: some programs reject all keys if one is Ed25519
};

// Reads the settings. An invalid value or an unreadable file counts as absent and is reported in
// one line.
[[nodiscard]] DriverSettings readDriverSettings(
    const std::function<void(const std::string &line)> &report);

}  // namespace driver
