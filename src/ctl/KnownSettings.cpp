#include "ctl/KnownSettings.hpp"

#include <algorithm>
#include <array>
#include <charconv>

#include "base/Root.hpp"
#include "ctl/HashText.hpp"
#include "ctl/Nearest.hpp"
#include "support/HexString.hpp"
#include "support/Settings.hpp"

namespace ctl {
namespace {

using platform_linux::SettingValue;

constexpr const char *kStandard = "kfyd";
constexpr const char *kDriver = "pkcs11";

const std::array kSettings = {
    KnownSetting{kIdentityHashKey, kIdentityDomain, SettingType::certificateHash, 0, "",
                 "SHA-1 hash of the certificate of kfyd's TLS identity"},
    KnownSetting{kIdentityNameKey, kIdentityDomain, SettingType::text, 0, "",
                 "label of kfyd's TLS identity, in lower case; counts where no hash is set"},
    KnownSetting{"debugLogging", kStandard, SettingType::boolean, 0, "false",
                 "debug mode: frames and passwords stand in the log"},
    KnownSetting{"verboseLogging", kStandard, SettingType::boolean, 0, "false",
                 "debug mode also traces the keychain's certificates"},
    KnownSetting{"LogFolderPath", kStandard, SettingType::text, 0, "",
                 "an existing folder for the log of debug mode, instead of /tmp/kfy"},
    KnownSetting{"LogFileName", kStandard, SettingType::text, 0, "Keyferry.log",
                 "name of the log file in that folder"},
    KnownSetting{"tlsTokenPinFile", kStandard, SettingType::text, 0, "",
                 "root-only file with the PIN of a token that holds kfyd's TLS identity"},
    KnownSetting{"timeLimitSeconds", kDriver, SettingType::integer, 1, "60",
                 "how long one use of a key may take in a program, the question at the device too"},
    KnownSetting{
        "pinMode", kDriver, SettingType::text, 0, "none",
        "\"none\": no login; \"pass\": programs log in with a PIN, \"protected\": without one"},
    KnownSetting{"showEd25519", kDriver, SettingType::boolean, 0, "false",
                 "programs also see Ed25519 keys, beside which some find no key at all"},
    KnownSetting{support::kLocalUsers, kStandard, SettingType::text, 0, "",
                 "names of those who may connect on this machine beside root; all if empty"},
};

KnownSetting settingOf(const support::Bound &bound) {
  return {bound.key,
          kStandard,
          SettingType::integer,
          bound.least,
          std::to_string(bound.valueIfAbsent),
          bound.meaning};
}

KnownSetting settingOf(const support::Switch &setting) {
  return {
      setting.key,    kStandard, SettingType::boolean, 0, setting.valueIfAbsent ? "true" : "false",
      setting.meaning};
}

std::vector<KnownSetting> allSettings() {
  std::vector<KnownSetting> all(kSettings.begin(), kSettings.end());
  for (const support::Switch &setting : support::kSwitches) {
    all.push_back(settingOf(setting));
  }
  for (const support::Bound &bound : support::kBounds) {
    all.push_back(settingOf(bound));
  }
  return all;
}

struct TypedBoolean {
  std::string_view text;
  bool value;
};

constexpr std::array kBooleans = {
    TypedBoolean{"true", true}, TypedBoolean{"false", false}, TypedBoolean{"YES", true},
    TypedBoolean{"NO", false},  TypedBoolean{"yes", true},    TypedBoolean{"no", false},
    TypedBoolean{"on", true},   TypedBoolean{"off", false},   TypedBoolean{"1", true},
    TypedBoolean{"0", false},
};

std::optional<SettingValue> booleanFrom(const std::string &text) {
  const auto *const row = std::ranges::find(kBooleans, text, &TypedBoolean::text);
  return row == kBooleans.end() ? std::nullopt : std::optional<SettingValue>(row->value);
}

std::optional<SettingValue> integerFrom(const std::string &text, std::int64_t least) {
  std::int64_t number = 0;
  const char *const end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, number);
  if (text.empty() || result.ec != std::errc() || result.ptr != end || number < least) {
    return std::nullopt;
  }
  return number;
}

std::optional<SettingValue> hashFrom(const std::string &text) {
  const auto hash = sha1FromText(text);
  return hash ? std::optional<SettingValue>(support::hexString(*hash)) : std::nullopt;
}

std::optional<SettingValue> valueFrom(const KnownSetting &setting, const std::string &text) {
  switch (setting.type) {
    case SettingType::boolean:
      return booleanFrom(text);
    case SettingType::integer:
      return integerFrom(text, setting.least);
    case SettingType::text:
      return text;
    case SettingType::certificateHash:
      return hashFrom(text);
  }
  return std::nullopt;
}

}  // namespace

std::span<const KnownSetting> knownSettings() {
  static const std::vector<KnownSetting> all = allSettings();
  return all;
}

const KnownSetting *knownSetting(std::string_view key) {
  const auto settings = knownSettings();
  const auto row = std::ranges::find(
      settings, key, [](const KnownSetting &setting) { return std::string_view(setting.key); });
  return row == settings.end() ? nullptr : &*row;
}

std::string nearestKnownKey(std::string_view key) {
  std::vector<std::string> keys;
  keys.reserve(knownSettings().size());
  for (const KnownSetting &setting : knownSettings()) {
    keys.emplace_back(setting.key);
  }
  return nearestTo(key, keys);
}

const char *nameOf(SettingType type) {
  switch (type) {
    case SettingType::boolean:
      return "true or false";
    case SettingType::integer:
      return "a number";
    case SettingType::text:
      return "a text";
    case SettingType::certificateHash:
      return "a SHA-1 hash of 40 digits";
  }
  return "";
}

std::optional<SettingValue> settingValueFrom(const KnownSetting &setting, const std::string &text,
                                             Error *error) {
  auto value = valueFrom(setting, text);
  if (!value) {
    const std::string bound =
        setting.type == SettingType::integer ? " of at least " + std::to_string(setting.least) : "";
    base::report(error, "settings", 0,
                 std::string(setting.key) + " is " + nameOf(setting.type) + bound + ", not \"" +
                     text + "\"");
  }
  return value;
}

std::string textOf(const SettingValue &value) {
  if (const auto *const text = std::get_if<std::string>(&value)) {
    return *text;
  }
  if (const auto *const number = std::get_if<std::int64_t>(&value)) {
    return std::to_string(*number);
  }
  return std::get<bool>(value) ? "true" : "false";
}

bool isTrue(const SettingValue &value) {
  if (const auto *const number = std::get_if<std::int64_t>(&value)) {
    return *number != 0;
  }
  const std::string text = textOf(value);
  return text == "true" || text == "YES";
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
  const auto found = std::ranges::find(*settings, key, &platform_linux::Setting::key);
  return found == settings->end() ? std::nullopt : std::optional(found->value);
}

}  // namespace ctl
