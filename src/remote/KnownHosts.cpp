#include "remote/KnownHosts.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <sstream>

#include "base/Descriptor.hpp"
#include "base/Files.hpp"
#include "encodings/HexString.hpp"
#include "identity/FingerprintText.hpp"

namespace remote {
namespace {

constexpr std::size_t kFingerprintBytes = 32;
constexpr std::size_t kLargestHostsFile = 1024 * 1024;

// Also true for an empty file.
bool endsWithLineFeed(const base::Descriptor &file) {
  char last = '\n';
  const off_t size = ::lseek(file.get(), 0, SEEK_END);
  return size <= 0 || ::pread(file.get(), &last, 1, size - 1) != 1 || last == '\n';
}

// Quoted as one word for a shell.
std::string inQuotes(std::string_view text) {
  std::string word = "'";
  for (const char character : text) {
    word += character == '\'' ? "'\\''" : std::string(1, character);
  }
  return word + "'";
}

}  // namespace

std::optional<Fingerprint> fingerprintFrom(std::string_view text) {
  std::string digits;
  for (const char character : text) {
    if (character != ':' && character != ' ' && character != '\t' && character != '\n') {
      digits.push_back(character);
    }
  }
  auto bytes = encodings::dataWithHexString(digits);
  return bytes && bytes->size() == kFingerprintBytes ? bytes : std::nullopt;
}

std::optional<Fingerprint> KnownHosts::find(const Address &address, Error *error) const {
  if (!base::fileExists(path_)) {
    return std::nullopt;
  }
  const auto content = base::readFile(path_, kLargestHostsFile, error);
  std::istringstream lines(content ? std::string(base::textOf(*content)) : "");
  for (std::string line; std::getline(lines, line);) {
    const auto blank = line.find(' ');
    if (blank != std::string::npos && line.substr(0, blank) == address.text()) {
      if (auto fingerprint = fingerprintFrom(std::string_view(line).substr(blank))) {
        return fingerprint;
      }
    }
  }
  return std::nullopt;
}

bool KnownHosts::add(const Address &address, const Fingerprint &fingerprint, Error *error) const {
  const base::Descriptor file(
      ::open(path_.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!file.isOpen()) {
    base::reportErrno(error, errno, "cannot write " + path_);
    return false;
  }
  // a full disk may have cut the last line; this one must not join it
  const std::string line = (endsWithLineFeed(file) ? "" : "\n") + address.text() + " " +
                           identity::fingerprintText(fingerprint) + "\n";
  // in one write, so that the lines of two processes do not mix
  const ssize_t written = ::write(file.get(), line.data(), line.size());
  if (written != static_cast<ssize_t>(line.size())) {
    base::reportErrno(error, written < 0 ? errno : ENOSPC, "cannot write " + path_);
    return false;
  }
  return true;
}

std::string KnownHosts::removalCommand(const Address &address) const {
  std::string pattern;
  for (const char character : address.text()) {
    if (std::string_view(".[]*^$\\/").find(character) != std::string_view::npos) {
      pattern.push_back('\\');
    }
    pattern.push_back(character);
  }
  return "sed -i " + inQuotes("/^" + pattern + " /d") + " " + inQuotes(path_);
}

}  // namespace remote
