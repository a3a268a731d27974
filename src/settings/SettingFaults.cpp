#include "settings/SettingFaults.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>
#include <optional>

#include "base/BooleanText.hpp"
#include "settings/Nearest.hpp"
#include "settings/Settings.hpp"

namespace settings {
namespace {

using platform::SettingValue;
using platform::StoredSetting;

constexpr std::array<std::string_view, 3> kPINModes{"none", "pass", "protected"};

std::string shown(const SettingValue &value) {
  constexpr std::size_t kMostShown = 40;
  const auto *const text = std::get_if<std::string>(&value);
  if (text == nullptr) {
    return written(value);
  }
  return text->size() <= kMostShown ? "\"" + *text + "\"" : "a text that long";
}

// The value that counts instead of an unusable one; nothing if the value is usable.
std::optional<std::string> inForceInsteadOf(const SettingValue &value, const Setting &setting) {
  const auto *const text = std::get_if<std::string>(&value);
  const auto *const number = std::get_if<std::int64_t>(&value);
  bool isUsable = false;
  switch (setting.type) {
    case SettingType::boolean:
      if (text != nullptr && !base::booleanFromText(*text)) {
        return "false";
      }
      isUsable = !std::holds_alternative<platform::UnusableValue>(value);
      break;
    case SettingType::integer:
      if (number != nullptr && *number > setting.most) {
        return std::to_string(setting.most);
      }
      isUsable = number != nullptr && *number >= setting.least;
      break;
    case SettingType::text:
    case SettingType::certificateHash:
      isUsable = text != nullptr;
      break;
    case SettingType::pinMode:
      isUsable = text != nullptr && std::ranges::find(kPINModes, *text) != kPINModes.end();
      break;
  }
  return isUsable ? std::nullopt : std::optional(writtenDefault(setting));
}

SettingFault unknownName(const std::string &key, std::string_view domain) {
  const auto isElsewhere = [&](const Setting *setting) { return setting->key == key; };
  const auto *const elsewhere = std::ranges::find_if(kSettings, isElsewhere);
  if (elsewhere != kSettings.end()) {
    return {key, "belongs into " + std::string((*elsewhere)->domain) + ".toml", "", ""};
  }
  std::vector<std::string> keys;
  for (const Setting *setting : kSettings) {
    if (setting->domain == domain) {
      keys.emplace_back(setting->key);
    }
  }
  std::string nearest = nearestTo(key, keys);
  if (editDistance(key, nearest) > key.size() / 2) {
    nearest.clear();
  }
  return {key, "is no setting", "", std::move(nearest)};
}

}  // namespace

std::vector<SettingFault> faultsIn(std::string_view domain,
                                   std::span<const StoredSetting> settings) {
  std::vector<SettingFault> faults;
  for (const StoredSetting &stored : settings) {
    const Setting *const setting = settingWithKey(stored.key, domain);
    if (setting == nullptr) {
      faults.push_back(unknownName(stored.key, domain));
    } else if (auto inForce = inForceInsteadOf(stored.value, *setting)) {
      faults.push_back({stored.key, "is " + kindOf(*setting) + ", not " + shown(stored.value),
                        std::move(*inForce), ""});
    }
  }
  return faults;
}

std::string lineOf(const SettingFault &fault) {
  std::string line = fault.key + " " + fault.wrong;
  if (!fault.inForce.empty()) {
    line += "; " + fault.inForce + " counts";
  } else if (!fault.nearest.empty()) {
    line += "; nearest is " + fault.nearest;
  } else {
    line += "; it does not count";
  }
  return line;
}

std::vector<std::string> complaintsAbout(std::string_view domain,
                                         std::span<const StoredSetting> settings) {
  std::vector<std::string> lines;
  std::ranges::transform(faultsIn(domain, settings), std::back_inserter(lines), lineOf);
  return lines;
}

}  // namespace settings
