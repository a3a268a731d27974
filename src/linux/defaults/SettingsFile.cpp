#include "linux/defaults/SettingsFile.hpp"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <utility>

#include "base/Bytes.hpp"
#include "base/Files.hpp"
#include "base/FolderForAll.hpp"

namespace platform_linux {
namespace {

constexpr std::size_t kLargestSettingsFile = 1024 * 1024;

std::string resolved(const std::string &path) {
  const std::unique_ptr<char, decltype(&std::free)> target(::realpath(path.c_str(), nullptr),
                                                           &std::free);
  return target == nullptr ? path : target.get();
}

unsigned modeOf(const std::string &path) {
  struct stat status{};
  return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0644U;
}

bool makeFolderOf(const std::string &path, Error *error) {
  const std::string folder = path.substr(0, path.rfind('/'));
  return folder.empty() || base::makeFolderForAll(folder, error);
}

// Adds the file's name to a reason about its text.
void nameFile(Error *error, const std::string &path) {
  if (error != nullptr) {
    error->description = path + ", " + error->description;
  }
}

}  // namespace

SettingsFile::SettingsFile(std::string path) : path_(std::move(path)) {}

std::optional<std::vector<Setting>> SettingsFile::readAll(Error *error) const {
  const auto text = read(error);
  if (!text) {
    return std::nullopt;
  }
  auto settings = readSettings(*text, error);
  if (!settings) {
    nameFile(error, path_);
  }
  return settings;
}

bool SettingsFile::set(const std::string &key, const SettingValue &value, Error *error) const {
  return change(key, value, error);
}

bool SettingsFile::remove(const std::string &key, Error *error) const {
  return change(key, std::nullopt, error);
}

std::optional<std::string> SettingsFile::read(Error *error) const {
  Error cause;
  const auto content = base::readFile(path_, kLargestSettingsFile, &cause);
  if (content) {
    return std::string(base::textOf(*content));
  }
  if (cause.domain == "errno" && cause.code == ENOENT) {
    return "";
  }
  if (error != nullptr) {
    *error = std::move(cause);
  }
  return std::nullopt;
}

bool SettingsFile::change(const std::string &key, const std::optional<SettingValue> &value,
                          Error *error) const {
  const auto before = read(error);
  if (!before) {
    return false;
  }
  const auto after = withSetting(*before, key, value, error);
  if (!after) {
    nameFile(error, path_);
    return false;
  }
  if (*after == *before) {
    return true;
  }
  // otherwise the link itself would be replaced, and its target would not change
  const std::string target = resolved(path_);
  return makeFolderOf(target, error) &&
         base::replaceFile(target, base::viewOf(*after), modeOf(target), error);
}

}  // namespace platform_linux
