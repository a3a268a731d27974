#include "linux/accounts/PasswordRules.hpp"

#include <pwquality.h>

#include <array>
#include <memory>

#include "base/Files.hpp"
#include "base/Root.hpp"

namespace platform_linux {
namespace {

constexpr const char *kRules = "/etc/security/pwquality.conf";

// What cracklib says where it has no dictionary.
constexpr std::string_view kNoDictionary = "error loading dictionary";

using Settings = std::unique_ptr<pwquality_settings_t, void (*)(pwquality_settings_t *)>;

std::string textOf(int code, void *detail) {
  std::array<char, PWQ_MAX_ERROR_MESSAGE_LEN> buffer{};
  const char *text = ::pwquality_strerror(buffer.data(), buffer.size(), code, detail);
  return text == nullptr ? "unknown" : text;
}

// The machine's settings; null, with the reason, if they can't be read. Without a file the
// library's own hold.
Settings readSettings(Error *error) {
  Settings settings(::pwquality_default_settings(), ::pwquality_free_settings);
  const std::string path = base::rooted(kRules);
  void *detail = nullptr;
  if (settings && base::fileExists(path)) {
    const int code = ::pwquality_read_config(settings.get(), path.c_str(), &detail);
    if (code != PWQ_ERROR_SUCCESS) {
      base::report(error, "pwquality", code, path + ": " + textOf(code, detail));
      settings.reset();
    }
  }
  return settings;
}

// One check: 0 or more is a score.
int check(pwquality_settings_t *settings, const SecretText &password, const std::string &user,
          std::string &reason) {
  // the library wants an end marker behind the password
  CleansedBytes text(password.reveal().begin(), password.reveal().end());
  text.push_back(0);
  void *detail = nullptr;
  const int code = ::pwquality_check(settings, reinterpret_cast<const char *>(text.data()), nullptr,
                                     user.c_str(), &detail);
  reason = code < 0 ? textOf(code, detail) : "";
  return code;
}

}  // namespace

bool passwordRulesAccept(const SecretText &password, const std::string &user,
                         const std::function<void(const std::string &)> &reporter, Error *error) {
  const Settings settings = readSettings(error);
  if (!settings) {
    return false;
  }
  std::string reason;
  int code = check(settings.get(), password, user, reason);
  if (code == PWQ_ERROR_CRACKLIB_CHECK && reason.find(kNoDictionary) != std::string::npos) {
    reporter("passwords are not held against a dictionary: " + reason);
    ::pwquality_set_int_value(settings.get(), PWQ_SETTING_DICT_CHECK, 0);
    code = check(settings.get(), password, user, reason);
  }
  if (code < 0) {
    base::report(error, "pwquality", code, reason);
  }
  return code >= 0;
}

}  // namespace platform_linux
