// A settings file whose one line is changed and removed again keeps every other value.

#include <algorithm>
#include <string>

#include "Expect.hpp"
#include "base/Bytes.hpp"
#include "linux/defaults/TomlText.hpp"

namespace {

using platform_linux::Setting;
using platform_linux::SettingValue;

constexpr const char *kKey = "debugLogging";
const SettingValue kValue = std::string("\"\n\\");

// All but the one that is changed; what does not parse is an error here.
std::vector<Setting> othersIn(const std::string &text) {
  auto settings = platform_linux::readSettings(text);
  expect(settings.has_value());
  std::erase_if(*settings, [](const Setting &setting) { return setting.key == kKey; });
  return *settings;
}

bool areEqual(const std::vector<Setting> &left, const std::vector<Setting> &right) {
  return std::ranges::equal(left, right, [](const Setting &one, const Setting &other) {
    return one.key == other.key && one.value == other.value;
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const std::string text(base::textOf({data, size}));
  const auto changed = platform_linux::withSetting(text, kKey, kValue);
  if (!platform_linux::readSettings(text) || !changed) {
    return 0;
  }
  const auto settings = platform_linux::readSettings(*changed);
  const bool isThere = settings && std::ranges::any_of(*settings, [](const Setting &setting) {
                         return setting.key == kKey && setting.value == kValue;
                       });
  const auto removed = platform_linux::withSetting(*changed, kKey, std::nullopt);
  expect(isThere && areEqual(othersIn(text), othersIn(*changed)));
  expect(!removed || areEqual(othersIn(text), platform_linux::readSettings(*removed).value()));
  return 0;
}
