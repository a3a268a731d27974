#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/Error.hpp"
#include "linux/defaults/SettingsFile.hpp"

namespace ctl {

// The domain of the daemon's TLS identity, and the keys in it.
inline constexpr const char *kIdentityDomain = "com.corvane.kfyd";
inline constexpr const char *kIdentityHashKey = "ssl_certificate_sha1_hash";
inline constexpr const char *kIdentityNameKey = "ssl_certificate_common_name";

enum class SettingType { boolean, integer, text, certificateHash };

// A setting that the daemon reads.
struct KnownSetting {
  const char *key;
  const char *domain;
  SettingType type;
  std::int64_t least;         // of integers
  std::string valueIfAbsent;  // as it is written; empty: none
  const char *meaning;
};

// All of them, in the order in which they are listed.
[[nodiscard]] std::span<const KnownSetting> knownSettings();

// The one with this key, null if there is none.
[[nodiscard]] const KnownSetting *knownSetting(std::string_view key);

// The key that was probably meant by one that is not known.
[[nodiscard]] std::string nearestKnownKey(std::string_view key);

// For people: "a number", "true or false".
[[nodiscard]] const char *nameOf(SettingType type);

// Reads a value as it is typed; nothing, with the reason, if it does not fit the setting.
[[nodiscard]] std::optional<platform_linux::SettingValue> settingValueFrom(
    const KnownSetting &setting, const std::string &text, Error *error = nullptr);

// A value as it is typed.
[[nodiscard]] std::string textOf(const platform_linux::SettingValue &value);

// Whether a stored value counts as true: true, a non-zero integer, "YES" and "true".
[[nodiscard]] bool isTrue(const platform_linux::SettingValue &value);

// The file of a domain, under the root.
[[nodiscard]] std::string pathOfDomain(std::string_view domain);

// Looks a setting up in a domain's file; nothing if it is not set there. *error tells whether the
// file could not be used.
[[nodiscard]] std::optional<platform_linux::SettingValue> storedSetting(std::string_view domain,
                                                                        std::string_view key,
                                                                        Error *error = nullptr);

}  // namespace ctl
