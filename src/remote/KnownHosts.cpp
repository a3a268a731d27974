#include "remote/KnownHosts.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <sstream>

#include "base/Descriptor.hpp"
#include "base/Files.hpp"
#include "support/HexString.hpp"

namespace remote {
namespace {

constexpr std::size_t kFingerprintBytes = 32;
constexpr std::size_t kLargestFile = 1024 * 1024;

}  // namespace

std::optional<Fingerprint> fingerprintFrom(std::string_view text) {
  std::string digits;
  for (const char character : text) {
    if (character != ':' && character != ' ' && character != '\t' && character != '\n') {
      digits.push_back(character);
    }
  }
  auto bytes = support::dataWithHexString(digits);
  return bytes && bytes->size() == kFingerprintBytes ? bytes : std::nullopt;
}

std::string textOf(const Fingerprint &fingerprint) {
  std::string text;
  for (const std::uint8_t byte : fingerprint) {
    text += (text.empty() ? "" : ":") + support::hexString({&byte, 1});
  }
  return text;
}

std::optional<Fingerprint> KnownHosts::find(const Address &address, Error *error) const {
  if (!base::fileExists(path_)) {
    return std::nullopt;
  }
  const auto content = base::readFile(path_, kLargestFile, error);
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
      ::open(path_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  const std::string line = address.text() + " " + textOf(fingerprint) + "\n";
  // in one piece, so that two processes do not mix their lines
  if (!file.isOpen() ||
      ::write(file.get(), line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
    base::reportErrno(error, errno, "cannot write " + path_);
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
  return "sed -i '/^" + pattern + " /d' '" + path_ + "'";
}

}  // namespace remote
