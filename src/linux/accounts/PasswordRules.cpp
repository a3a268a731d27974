#include "linux/accounts/PasswordRules.hpp"

#include <pwquality.h>

#include <array>
#include <cstdint>
#include <fstream>
#include <memory>

#include "base/Files.hpp"
#include "base/Root.hpp"

namespace platform_linux {
namespace {

constexpr const char *kRules = "/etc/security/pwquality.conf";

using Reporter = std::function<void(const std::string &line)>;
using Settings = std::unique_ptr<pwquality_settings_t, void (*)(pwquality_settings_t *)>;

std::string textOf(int code, void *detail) {
  std::array<char, PWQ_MAX_ERROR_MESSAGE_LEN> buffer{};
  const char *text = ::pwquality_strerror(buffer.data(), buffer.size(), code, detail);
  return text == nullptr ? "unknown" : text;
}

// The machine's settings; null, with the reason, if they can't be read. What no file sets is the
// library's own.
Settings readSettings(Error *error) {
  Settings settings(::pwquality_default_settings(), ::pwquality_free_settings);
  const std::string path = base::rooted(kRules);
  void *detail = nullptr;
  const int code = settings ? ::pwquality_read_config(settings.get(), path.c_str(), &detail)
                            : PWQ_ERROR_MEM_ALLOC;
  // By then the library has read the files of the folder "pwquality.conf.d".
  const bool isAbsent = code == PWQ_ERROR_CFGFILE_OPEN && !base::fileExists(path);
  if (code != PWQ_ERROR_SUCCESS && !isAbsent) {
    base::report(error, "pwquality", code, path + ": " + textOf(code, detail));
    settings.reset();
  }
  return settings;
}

// Why the dictionary whose files begin with this path can't be loaded; empty if it can. CrackLib,
// asked for such a one, would write to standard error by itself.
std::string troubleOfDictionary(const std::string &path) {
  constexpr std::uint32_t kMagic = 0x70775631;  // first in a packed index, cracklib's packer.h
  struct {
    std::uint32_t magic = 0;
    std::uint32_t words = 0;
  } header;
  if (!base::fileExists(path + ".pwd") && !base::fileExists(path + ".pwd.gz")) {
    return "there is no " + path + ".pwd";
  }
  std::ifstream index(path + ".pwi", std::ios::binary);
  index.read(reinterpret_cast<char *>(&header), sizeof header);
  return index && header.magic == kMagic && header.words > 0
             ? ""
             : path + ".pwi is no dictionary's index";
}

// Leaves the dictionary out where there is none that can be loaded.
void chooseDictionary(pwquality_settings_t *settings, const Reporter &reporter) {
  const char *configured = nullptr;
  int isWanted = 0;
  ::pwquality_get_int_value(settings, PWQ_SETTING_DICT_CHECK, &isWanted);
  ::pwquality_get_str_value(settings, PWQ_SETTING_DICT_PATH, &configured);
  if (isWanted == 0 || configured == nullptr) {
    return;
  }
  const std::string path = base::rooted(configured);
  const std::string trouble = troubleOfDictionary(path);
  if (trouble.empty()) {
    ::pwquality_set_str_value(settings, PWQ_SETTING_DICT_PATH, path.c_str());
  } else {
    reporter("passwords are not held against a dictionary: " + trouble);
    ::pwquality_set_int_value(settings, PWQ_SETTING_DICT_CHECK, 0);
  }
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
                         const Reporter &reporter, Error *error) {
  const Settings settings = readSettings(error);
  if (!settings) {
    return false;
  }
  chooseDictionary(settings.get(), reporter);
  std::string reason;
  const int code = check(settings.get(), password, user, reason);
  if (code < 0) {
    base::report(error, "pwquality", code, reason);
  }
  return code >= 0;
}

}  // namespace platform_linux
