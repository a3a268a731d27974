#include "linux/defaults/TomlUserDefaults.hpp"

#include <sys/stat.h>

#include <cerrno>
#include <ctime>
#include <utility>

#include "base/Bytes.hpp"
#include "base/Files.hpp"
#include "base/Root.hpp"

namespace platform_linux {
namespace {

constexpr std::size_t kLargestTomlFile = 1024 * 1024;
constexpr std::int64_t kSecond = 1'000'000'000;

// Two writes within one tick of the kernel's clock (up to 10 ms) leave the same time stamps.
constexpr std::int64_t kTrustedAge = 20'000'000;

constexpr const char *kKept = "the last good values stay in use";

std::int64_t nanoseconds(const timespec &time) {
  return time.tv_sec * kSecond + time.tv_nsec;
}

// How to tell that a file is another one, or changed, without reading it.
struct Stamp {
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  mode_t mode = 0;
  std::int64_t modified = 0;
  std::int64_t changed = 0;

  friend bool operator==(const Stamp &left, const Stamp &right) = default;
};

std::optional<Stamp> stampOf(const std::string &path) {
  struct stat status{};
  if (::stat(path.c_str(), &status) != 0) {
    return std::nullopt;
  }
  return Stamp{status.st_dev,
               status.st_ino,
               status.st_size,
               status.st_mode,
               nanoseconds(status.st_mtim),
               nanoseconds(status.st_ctim)};
}

std::int64_t now() {
  timespec time{};
  ::clock_gettime(CLOCK_REALTIME, &time);
  return nanoseconds(time);
}

}  // namespace

// What is known of one domain's file.
struct TomlUserDefaults::File {
  std::string domain;
  std::string path;
  std::uint64_t moment = 0;            // in which it was last looked at; 0: in none
  std::optional<Stamp> stamp;          // when it was last looked at; nothing: it was not there
  bool isTrusted = false;              // the same stamp means the same content
  std::optional<std::string> content;  // as last read, whether it parses or not
  std::map<std::string, SettingValue, std::less<>> values;

  void forget() {
    content.reset();
    values.clear();
  }
};

TomlUserDefaults::TomlUserDefaults(Reporter reporter, std::string folder, Moment moment,
                                   Check check)
    : reporter_(std::move(reporter)),
      folder_(std::move(folder)),
      moment_(std::move(moment)),
      check_(std::move(check)) {}

TomlUserDefaults::~TomlUserDefaults() = default;

std::string TomlUserDefaults::pathOf(std::string_view domain) const {
  return folder_ + "/" + std::string(domain) + ".toml";
}

std::optional<std::string> TomlUserDefaults::text(std::string_view domain, std::string_view key) {
  const auto value = find(domain, key);
  const auto *text = value ? std::get_if<std::string>(&*value) : nullptr;
  return text == nullptr ? std::nullopt : std::optional(*text);
}

std::optional<bool> TomlUserDefaults::boolean(std::string_view domain, std::string_view key) {
  const auto value = find(domain, key);
  return value ? platform::booleanOf(*value) : std::nullopt;
}

std::optional<std::int64_t> TomlUserDefaults::integer(std::string_view domain,
                                                      std::string_view key) {
  const auto value = find(domain, key);
  const auto *number = value ? std::get_if<std::int64_t>(&*value) : nullptr;
  return number == nullptr ? std::nullopt : std::optional(*number);
}

std::optional<SettingValue> TomlUserDefaults::find(std::string_view domain, std::string_view key) {
  const std::uint64_t moment = moment_ ? moment_() : 0;
  std::vector<std::string> complaints;
  std::optional<SettingValue> found;
  {
    const std::lock_guard lock(mutex_);
    const auto &values = current(domain, moment, complaints).values;
    if (const auto value = values.find(key); value != values.end()) {
      found = value->second;
    }
  }
  // Only now that the file is up to date and the mutex free: the reporter may look up settings of
  // the same file, and wait for another thread that does.
  for (const std::string &complaint : complaints) {
    if (reporter_) {
      reporter_(complaint);
    }
  }
  return found;
}

TomlUserDefaults::File &TomlUserDefaults::current(std::string_view domain, std::uint64_t moment,
                                                  std::vector<std::string> &complaints) {
  auto place = files_.find(domain);
  if (place == files_.end()) {
    auto file = std::make_unique<File>();
    file->domain = domain;
    file->path = pathOf(domain);
    place = files_.emplace(domain, std::move(file)).first;
  }
  File &file = *place->second;
  // noted first, so that the next look-up in this moment finds the file looked at
  const std::uint64_t before = std::exchange(file.moment, moment);
  if (moment == 0 || moment != before) {
    complaints = refresh(file);
  }
  return file;
}

std::vector<std::string> TomlUserDefaults::refresh(File &file) const {
  const std::string path = base::rooted(file.path);
  const std::int64_t time = now();
  const auto stamp = stampOf(path);
  const bool isNew = stamp != file.stamp;
  if (!isNew && (file.isTrusted || !stamp)) {
    return {};
  }
  if (!stamp || (stamp->mode & (S_IWGRP | S_IWOTH)) != 0) {
    file.stamp = stamp;
    file.isTrusted = false;
    file.forget();
    if (!stamp || !isNew) {
      return {};
    }
    return {file.path + " can be written by its group or others and is not used"};
  }
  Error error;
  const auto content = base::readFile(path, kLargestTomlFile, &error);
  if (!content && (error.code == EMFILE || error.code == ENFILE)) {
    file.moment = 0;  // the stamp stays as it was: the next look-up tries again
    return {};
  }
  file.stamp = stamp;
  file.isTrusted = content && time - stamp->changed >= kTrustedAge;
  if (!content && isNew) {
    return {error.description + "; " + kKept};
  }
  if (!content) {
    return {};
  }
  return take(file, base::textOf(*content));
}

std::vector<std::string> TomlUserDefaults::take(File &file, std::string_view content) const {
  if (file.content == content) {
    return {};
  }
  file.content = content;
  Error error;
  auto settings = readSettings(content, &error);
  if (!settings) {
    return {file.path + ", " + error.description + "; " + kKept};
  }
  auto complaints = check_ ? check_(file.domain, *settings) : std::vector<std::string>();
  for (std::string &complaint : complaints) {
    complaint.insert(0, file.path + ": ");
  }
  file.values.clear();
  for (Setting &setting : *settings) {
    file.values.emplace(std::move(setting.key), std::move(setting.value));
  }
  return complaints;
}

}  // namespace platform_linux
