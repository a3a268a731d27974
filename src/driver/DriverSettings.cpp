#include "driver/DriverSettings.hpp"

#include <algorithm>
#include <array>
#include <string_view>

#include "linux/defaults/TomlUserDefaults.hpp"
#include "settings/Settings.hpp"

namespace driver {
namespace {

constexpr std::string_view kDomain = "pkcs11";

struct PinModeRow {
  std::string_view name;
  PinMode mode;
};

constexpr std::array kPinModes{PinModeRow{"none", PinMode::none}, PinModeRow{"pass", PinMode::pass},
                               PinModeRow{"protected", PinMode::atTheHolder}};

}  // namespace

DriverSettings readDriverSettings(const std::function<void(const std::string &line)> &report) {
  platform_linux::TomlUserDefaults defaults(report);
  DriverSettings settings;
  settings.timeLimit =
      std::chrono::seconds(settings::valueOf(settings::kTimeLimitSeconds, defaults));
  settings.showEd25519 = settings::isOn(settings::kShowEd25519, defaults);
  if (const auto name = defaults.text(kDomain, "pinMode")) {
    const auto *const row = std::ranges::find(kPinModes, *name, &PinModeRow::name);
    if (row != kPinModes.end()) {
      settings.pinMode = row->mode;
    } else {
      report("pinMode in /etc/keyferry/pkcs11.toml is none, pass or protected, not \"" + *name +
             "\"; none counts");
    }
  }
  return settings;
}

}  // namespace driver
