#include "daemon/TokenPin.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <string>

#include "base/Files.hpp"
#include "base/Root.hpp"
#include "logging/CVNLog.hpp"

namespace kfyd {
namespace {

constexpr std::size_t kLargestPINFile = 4096;
constexpr mode_t kOthers = 077;

std::string octal(mode_t mode) {
  std::array<char, 8> text{};
  std::snprintf(text.data(), text.size(), "%04o", mode & 07777U);
  return text.data();
}

bool isForThisUserAlone(const std::string &name, const std::string &path) {
  struct stat status{};
  // if stat fails, reading fails too and reports it
  if (stat(path.c_str(), &status) != 0 ||
      (status.st_uid == geteuid() && (status.st_mode & kOthers) == 0)) {
    return true;
  }
  CVNLog("tlsTokenPinFile %s is not used: owner %u, mode %s; it must be root's with mode 0600",
         name, status.st_uid, octal(status.st_mode));
  return false;
}

}  // namespace

std::optional<SecretText> tlsTokenPin(platform::UserDefaults &defaults) {
  const auto name = defaults.text(platform::kStandardDefaults, "tlsTokenPinFile");
  if (!name || name->empty()) {
    return std::nullopt;
  }
  const std::string path = base::rooted(*name);
  if (!isForThisUserAlone(*name, path)) {
    return std::nullopt;
  }
  Error error;
  const auto content = base::readFile(path, kLargestPINFile, &error);
  if (!content) {
    CVNLog("tlsTokenPinFile is not used: %s", error.description);
    return std::nullopt;
  }
  const std::string_view text = base::textOf(*content);
  SecretText pin(text.substr(0, text.find_first_of("\r\n")));
  if (pin.empty()) {
    CVNLog("tlsTokenPinFile %s is not used: its first line is empty", *name);
    return std::nullopt;
  }
  return pin;
}

}  // namespace kfyd
