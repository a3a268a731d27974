#include "logging/CVNUnifiedLogger.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <mutex>

#include "base/Bytes.hpp"
#include "base/Descriptor.hpp"
#include "base/Files.hpp"
#include "base/Root.hpp"
#include "logging/CVNLog.hpp"
#include "logging/CVNRealHomeFolder.hpp"
#include "settings/Settings.hpp"

namespace {

using base::Descriptor;
using platform::Clock;

constexpr std::string_view kRootFolder = "/tmp/kfy";
constexpr uid_t kSecurityAgentID = 92;
constexpr std::chrono::milliseconds kRepeatSpan{2000};
constexpr std::int64_t kEchoTwiceFrom = 1001;

bool existsUnderRoot(const std::string &path) {
  return base::fileExists(base::rooted(path));
}

// The path without slashes at its end. With one, a link would be followed, and the folder would be
// taken for its parent.
std::string settingsFolder(const std::string &path, uid_t user) {
  std::string folder =
      path == "~" || path.starts_with("~/") ? realHomeFolder(user) + path.substr(1) : path;
  while (folder.size() > 1 && folder.ends_with('/')) {
    folder.pop_back();
  }
  return folder;
}

// The component behind the path, with one slash between names and none at the end.
std::string appendingPathComponent(const std::string &path, const std::string &component) {
  std::string whole = path;
  whole.append("/").append(component);
  std::string appended;
  for (const char character : whole) {
    if (character != '/' || !appended.ends_with('/')) {
      appended += character;
    }
  }
  if (appended.size() > 1 && appended.ends_with('/')) {
    appended.pop_back();
  }
  return appended;
}

// The folder that contains the path.
std::string folderOf(const std::string &path) {
  return std::filesystem::path(path).parent_path();
}

std::string freshFolder() {
  std::string folder = base::rooted("/tmp/kfy-XXXXXX");
  if (::mkdtemp(folder.data()) == nullptr) {
    return "";
  }
  return folder.substr(base::root().size());
}

std::string logFolder(logging::LogPlatform &platform) {
  const auto configured =
      platform.defaults.text(platform::kStandardDefaults, settings::kLogFolderPath.key);
  if (configured && !configured->empty()) {
    const std::string folder = settingsFolder(*configured, platform.realUserID);
    if (existsUnderRoot(folder)) {
      return folder;
    }
  }
  if (platform.realUserID == 0 || platform.realUserID == kSecurityAgentID) {
    return std::string(kRootFolder);
  }
  std::string ofHome = realHomeFolder(platform.realUserID) + "/Library/Logs";
  if (existsUnderRoot(ofHome)) {
    return ofHome;
  }
  const std::string fresh = freshFolder();
  return fresh.empty() ? ofHome : fresh;
}

std::string logFileName(logging::LogPlatform &platform) {
  const auto configured =
      platform.defaults.text(platform::kStandardDefaults, settings::kLogFileName.key);
  if (configured && !configured->empty()) {
    return *configured;
  }
  if (platform.bundleLogFileName && !platform.bundleLogFileName->empty()) {
    return *platform.bundleLogFileName;
  }
  return settings::kLogFileName.textIfAbsent;
}

std::string twoDigits(int value) {
  return {static_cast<char>('0' + value / 10 % 10), static_cast<char>('0' + value % 10)};
}

// ISO 8601 internet date-time in the local zone (RFC 3339), "Z" where the offset is zero.
std::string timeStamp(Clock &clock, Clock::Time time) {
  const std::chrono::seconds offset = clock.utcOffsetAt(time);
  const std::time_t local = std::chrono::system_clock::to_time_t(time + offset);
  std::tm parts{};
  gmtime_r(&local, &parts);
  char text[48];
  std::snprintf(text, sizeof(text), "%04d-%02d-%02dT%02d:%02d:%02d", parts.tm_year + 1900,
                parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
  if (offset.count() == 0) {
    return std::string(text) + "Z";
  }
  const int minutes = static_cast<int>(std::abs(offset.count()) / 60);
  return std::string(text) + (offset.count() < 0 ? '-' : '+') + twoDigits(minutes / 60) + ":" +
         twoDigits(minutes % 60);
}

// True if another user (not root) could replace this folder, by a link for instance, and it is not
// safely ours. Another user must not redirect log lines.
bool isAnothersInSharedFolder(int folder) {
  struct stat parent{};
  struct stat status{};
  if (::fstatat(folder, "..", &parent, 0) != 0 || ::fstat(folder, &status) != 0) {
    return true;
  }
  if ((parent.st_mode & S_IWOTH) == 0) {
    return false;
  }
  const bool ours = status.st_uid == ::geteuid() || status.st_uid == 0;
  return !ours || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
}

// The log file, made if it is missing, open at its end. Says on standard error when it can't be
// made.
int openLogFile(const std::string &logFileURL, platform::StandardError &standardError) {
  const std::string path = base::rooted(logFileURL);
  const std::string folderPath = folderOf(path);
  const std::string name = std::filesystem::path(path).filename();
  const Descriptor folder(::open(folderPath.empty() ? "." : folderPath.c_str(),
                                 O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  constexpr int kFlags = O_WRONLY | O_APPEND | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  int file = -1;
  if (folder.isOpen() && !isAnothersInSharedFolder(folder.get())) {
    file = ::openat(folder.get(), name.c_str(), kFlags);
    if (file < 0 && ::faccessat(folder.get(), name.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0) {
      return -1;  // it exists but can't be opened for writing: the line is lost silently
    }
    if (file < 0) {
      file = ::openat(folder.get(), name.c_str(), kFlags | O_CREAT | O_EXCL, 0666);
    }
  }
  if (file < 0) {
    standardError.write("error creating logfile at " + logFileURL + "\n");
  }
  return file;
}

// A failed write loses its line, as a log must not stop what it reports on.
void append(const Descriptor &file, std::string_view text) {
  const ByteView bytes = base::viewOf(text);
  std::size_t done = 0;
  while (file.isOpen() && done < bytes.size()) {
    const ssize_t written = ::write(file.get(), bytes.data() + done, bytes.size() - done);
    if (written <= 0) {
      return;
    }
    done += static_cast<std::size_t>(written);
  }
}

}  // namespace

CVNUnifiedLogger::CVNUnifiedLogger(logging::LogPlatform &platform)
    : logFileURL(appendingPathComponent(logFolder(platform), logFileName(platform))),
      lastLoggedDate(Clock::Time::min()),
      platform_(platform) {
  (void)base::makeFolders(folderOf(base::rooted(logFileURL)), 0777);
}

void CVNUnifiedLogger::logString(std::string_view message, std::int64_t level) {
  const std::lock_guard lock(logging::logMutex());
  if (level == logging::kLogLevel && !logging::debugModeOn()) {
    return;
  }
  const std::string line = std::string(message) + "\n";
  platform_.standardError.write(line);

  // The distant past is compared separately: subtracting it would overflow.
  const bool isSoon =
      lastLoggedDate != Clock::Time::min() && platform_.clock.now() - lastLoggedDate <= kRepeatSpan;
  if (isSoon && message == lastLine) {
    if (repeated >= kEchoTwiceFrom) {
      platform_.standardError.write(line);
    }
    ++repeated;
    return;
  }
  writeLines(line);
  lastLoggedDate = platform_.clock.now();
  lastLine = message;
}

void CVNUnifiedLogger::writeLines(std::string_view line) {
  const Descriptor file(openLogFile(logFileURL, platform_.standardError));
  const std::string stamp = timeStamp(platform_.clock, platform_.clock.now());
  std::string text;
  if (repeated >= 1) {
    text = stamp + ":Last message repeated " + std::to_string(repeated) + " times\n";
    repeated = 0;
  }
  text += stamp + " " + platform_.processName + "(" + std::to_string(::getpid()) + "): ";
  text += line;
  append(file, text);
}
