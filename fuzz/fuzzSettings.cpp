// A settings file whose one line is changed and removed again keeps every other value.

#include <map>

#include "Expect.hpp"
#include "base/Bytes.hpp"
#include "linux/defaults/TomlText.hpp"

namespace {

using Values = std::map<std::string, platform_linux::SettingValue>;

constexpr const char *kKey = "debugLogging";

Values valuesIn(const std::string &text) {
  Values values;
  const auto settings = platform_linux::readSettings(text);
  expect(settings.has_value());
  for (const auto &setting : *settings) {
    values.emplace(setting.key, setting.value);
  }
  return values;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const std::string text(base::textOf({data, size}));
  const Values::mapped_type value = std::string("\"\n\\");
  const auto changed = platform_linux::withSetting(text, kKey, value);
  if (!platform_linux::readSettings(text) || !changed) {
    return 0;
  }
  Values expected = valuesIn(text);
  expected.insert_or_assign(kKey, value);
  expect(valuesIn(*changed) == expected);
  expected.erase(kKey);
  const auto removed = platform_linux::withSetting(*changed, kKey, std::nullopt);
  expect(!removed || valuesIn(*removed) == expected);
  return 0;
}
