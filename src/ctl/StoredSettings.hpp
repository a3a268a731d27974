#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/Error.hpp"
#include "linux/defaults/SettingsFile.hpp"
#include "settings/Settings.hpp"

namespace ctl {

// The setting of any domain with this key, null if there is none.
[[nodiscard]] const settings::Setting *knownSetting(std::string_view key);

// The known key that was probably meant by an unknown one.
[[nodiscard]] std::string nearestKnownKey(std::string_view key);

// Reads a value as it is typed; nothing, with the reason, if it does not fit the setting. A boolean
// may also be "on" and "off".
[[nodiscard]] std::optional<platform::SettingValue> settingValueFrom(
    const settings::Setting &setting, const std::string &text, Error *error = nullptr);

// The file of a domain, under the root.
[[nodiscard]] std::string pathOfDomain(std::string_view domain);

// Looks a setting up in a domain's file; nothing if it is not set there. *error tells whether the
// file could not be used.
[[nodiscard]] std::optional<platform::SettingValue> storedSetting(std::string_view domain,
                                                                  std::string_view key,
                                                                  Error *error = nullptr);

}  // namespace ctl
