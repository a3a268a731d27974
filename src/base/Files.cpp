#include "base/Files.hpp"

#include "base/Descriptor.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace base {
namespace {

bool writeAll(int descriptor, ByteView content) {
  while (!content.empty()) {
    const ssize_t written = ::write(descriptor, content.data(), content.size());
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written <= 0) {
      return false;
    }
    content = content.subspan(static_cast<std::size_t>(written));
  }
  return true;
}

bool replace(const std::string &path, ByteView content, unsigned mode, int (*synchronise)(int file),
             Error *error) {
  std::string temporary = path + ".XXXXXX";
  const Descriptor file(::mkostemp(temporary.data(), O_CLOEXEC));
  if (file.get() < 0) {
    reportErrno(error, errno, "cannot write " + path);
    return false;
  }
  if (::fchmod(file.get(), mode) != 0 || !writeAll(file.get(), content) ||
      synchronise(file.get()) != 0 || std::rename(temporary.c_str(), path.c_str()) != 0) {
    const int cause = errno;
    ::unlink(temporary.c_str());
    reportErrno(error, cause, "cannot write " + path);
    return false;
  }
  return true;
}

}  // namespace

std::optional<CleansedBytes> readFile(const std::string &path, std::size_t limit, Error *error) {
  // O_NONBLOCK: opening a FIFO must not block the caller
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status{};
  if (file.get() < 0 || ::fstat(file.get(), &status) != 0) {
    reportErrno(error, errno, "cannot read " + path);
    return std::nullopt;
  }
  if (!S_ISREG(status.st_mode)) {
    report(error, "errno", EINVAL, "cannot read " + path + ": not a regular file");
    return std::nullopt;
  }
  CleansedBytes content;
  // one byte more than the file's size, so that the last read meets the end without a larger buffer
  content.resize(std::min(limit, static_cast<std::size_t>(status.st_size)) + 1);
  std::size_t length = 0;
  while (true) {
    if (length == content.size()) {
      content.resize(content.size() * 2);
    }
    const ssize_t got = ::read(file.get(), content.data() + length, content.size() - length);
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got < 0) {
      reportErrno(error, errno, "cannot read " + path);
      return std::nullopt;
    }
    if (got == 0) {
      break;
    }
    length += static_cast<std::size_t>(got);
    if (length > limit) {
      report(error, "errno", EFBIG,
             "cannot read " + path + ": larger than " + std::to_string(limit) + " bytes");
      return std::nullopt;
    }
  }
  content.resize(length);
  return content;
}

bool replaceFile(const std::string &path, ByteView content, unsigned mode, Error *error) {
  return replace(path, content, mode, ::fsync, error);
}

bool replacePassingFile(const std::string &path, ByteView content, unsigned mode, Error *error) {
  return replace(path, content, mode, [](int /*file*/) { return 0; }, error);
}

bool makeFolders(const std::string &path, unsigned mode, Error *error) {
  for (std::size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
    const std::string folder = path.substr(0, end);
    if (::mkdir(folder.c_str(), mode) != 0 && errno != EEXIST) {
      reportErrno(error, errno, "cannot make the folder " + folder);
      return false;
    }
    if (end == std::string::npos) {
      return true;
    }
  }
}

bool fileExists(const std::string &path) {
  return ::access(path.c_str(), F_OK) == 0;
}

}  // namespace base
