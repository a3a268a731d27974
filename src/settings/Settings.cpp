#include "settings/Settings.hpp"

#include <algorithm>

namespace settings {

const Setting *settingWithKey(std::string_view key, std::string_view domain) {
  const auto row = std::ranges::find_if(kSettings, [&](const Setting *setting) {
    return setting->key == key && setting->domain == domain;
  });
  return row == kSettings.end() ? nullptr : *row;
}

std::int64_t valueOf(const Bound &bound, platform::UserDefaults &defaults) {
  const auto value = defaults.integer(bound.domain, bound.key);
  return value && *value >= bound.least ? std::min(*value, bound.most) : bound.valueIfAbsent;
}

bool isOn(const Switch &setting, platform::UserDefaults &defaults) {
  return defaults.boolean(setting.domain, setting.key).value_or(setting.valueIfAbsent != 0);
}

std::string kindOf(const Setting &setting) {
  switch (setting.type) {
    case SettingType::boolean:
      return "true or false";
    case SettingType::integer:
      return "a number from " + std::to_string(setting.least) + " to " +
             std::to_string(setting.most);
    case SettingType::text:
      return "a text";
    case SettingType::certificateHash:
      return "a text, the SHA-1 hash of 40 digits";
    case SettingType::pinMode:
      return "\"none\", \"pass\" or \"protected\"";
  }
  return "";
}

std::string writtenDefault(const Setting &setting) {
  switch (setting.type) {
    case SettingType::boolean:
      return setting.valueIfAbsent != 0 ? "true" : "false";
    case SettingType::integer:
      return std::to_string(setting.valueIfAbsent);
    case SettingType::text:
    case SettingType::certificateHash:
    case SettingType::pinMode:
      break;
  }
  return setting.textIfAbsent;
}

std::string written(const platform::SettingValue &value) {
  if (const auto *const text = std::get_if<std::string>(&value)) {
    return *text;
  }
  if (const auto *const number = std::get_if<std::int64_t>(&value)) {
    return std::to_string(*number);
  }
  if (const auto *const other = std::get_if<platform::UnusableValue>(&value)) {
    return "(" + other->kind + ")";
  }
  return std::get<bool>(value) ? "true" : "false";
}

}  // namespace settings
