#include "ctl/StoredSettings.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <vector>

#include "base/BooleanText.hpp"
#include "base/LowerCase.hpp"
#include "base/Root.hpp"
#include "ctl/HashText.hpp"
#include "encodings/HexString.hpp"
#include "settings/Nearest.hpp"
#include "settings/SettingFaults.hpp"

namespace ctl {
namespace {

using platform::SettingValue;
using settings::Setting;
using settings::SettingType;

std::optional<SettingValue> booleanFrom(const std::string &text) {
  const std::string lowered = base::lowerCase(text);
  if (lowered == "on" || lowered == "off") {
    return lowered == "on";
  }
  const auto value = base::booleanFromText(text);
  return value ? std::optional<SettingValue>(*value) : std::nullopt;
}

std::optional<SettingValue> integerFrom(const std::string &text) {
  std::int64_t number = 0;
  const char *const end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, number);
  if (text.empty() || result.ec != std::errc() || result.ptr != end) {
    return std::nullopt;
  }
  return number;
}

std::optional<SettingValue> hashFrom(const std::string &text) {
  const auto hash = sha1FromText(text);
  return hash ? std::optional<SettingValue>(encodings::hexString(*hash)) : std::nullopt;
}

std::optional<SettingValue> valueFrom(const Setting &setting, const std::string &text) {
  switch (setting.type) {
    case SettingType::boolean:
      return booleanFrom(text);
    case SettingType::integer:
      return integerFrom(text);
    case SettingType::text:
    case SettingType::pinMode:
      return text;
    case SettingType::certificateHash:
      return hashFrom(text);
  }
  return std::nullopt;
}

}  // namespace

const Setting *knownSetting(std::string_view key) {
  const auto row = std::ranges::find_if(
      settings::kSettings, [&](const Setting *setting) { return setting->key == key; });
  return row == settings::kSettings.end() ? nullptr : *row;
}

std::string nearestKnownKey(std::string_view key) {
  std::vector<std::string> keys;
  keys.reserve(settings::kSettings.size());
  for (const Setting *setting : settings::kSettings) {
    keys.emplace_back(setting->key);
  }
  return settings::nearestTo(key, keys);
}

std::optional<SettingValue> settingValueFrom(const Setting &setting, const std::string &text,
                                             Error *error) {
  auto value = valueFrom(setting, text);
  if (value &&
      !settings::faultsIn(setting.domain, std::array{platform::StoredSetting{setting.key, *value}})
           .empty()) {
    value.reset();
  }
  if (!value) {
    base::report(
        error, "settings", 0,
        std::string(setting.key) + " is " + settings::kindOf(setting) + ", not \"" + text + "\"");
  }
  return value;
}

std::string pathOfDomain(std::string_view domain) {
  return base::rooted("/etc/keyferry/" + std::string(domain) + ".toml");
}

std::optional<SettingValue> storedSetting(std::string_view domain, std::string_view key,
                                          Error *error) {
  const auto settings = platform_linux::SettingsFile(pathOfDomain(domain)).readAll(error);
  if (!settings) {
    return std::nullopt;
  }
  const auto found = std::ranges::find(*settings, key, &platform::StoredSetting::key);
  return found == settings->end() ? std::nullopt : std::optional(found->value);
}

}  // namespace ctl
