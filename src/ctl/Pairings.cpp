#include "ctl/Pairings.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>
#include <variant>

#include "base/Files.hpp"
#include "base/FolderForAll.hpp"
#include "base/Root.hpp"
#include "encodings/HexString.hpp"
#include "identity/ListingTexts.hpp"
#include "linux/defaults/SettingsFile.hpp"

namespace ctl {
namespace {

constexpr const char *kPairingsPath = "/etc/keyferry/pairings.toml";
constexpr std::size_t kLargestPairingFile = 1024 * 1024;
constexpr std::size_t kHashBytes = 20;

constexpr const char *kFirstLine =
    "# Keys that may authenticate for a user of this machine; written by sc_auth pair and unpair\n";

// In a sandboxed root the caller takes root's place.
bool belongsToOthers(const struct stat &status) {
  return (status.st_uid != 0 && status.st_uid != ::geteuid()) ||
         (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
}

std::optional<Pairing> pairingFrom(const platform_linux::Setting &setting) {
  const auto *const digits = std::get_if<std::string>(&setting.value);
  auto hash = digits == nullptr ? std::nullopt : encodings::dataWithHexString(*digits);
  if (!hash || hash->size() != kHashBytes) {
    return std::nullopt;
  }
  return Pairing{setting.key, std::move(*hash)};
}

}  // namespace

PairingFile::PairingFile(std::string path) : path_(std::move(path)) {}

std::optional<std::string> PairingFile::readText(Error *error) const {
  struct stat status{};
  if (::lstat(path_.c_str(), &status) != 0) {
    if (errno == ENOENT) {
      return "";
    }
    base::reportErrno(error, errno, "cannot read " + path_);
    return std::nullopt;
  }
  if (!S_ISREG(status.st_mode) || belongsToOthers(status)) {
    base::report(error, "pairings", 0,
                 path_ + " is not a regular file that root alone can change, so it is not used");
    return std::nullopt;
  }
  const auto content = base::readFile(path_, kLargestPairingFile, error);
  return content ? std::optional(std::string(base::textOf(*content))) : std::nullopt;
}

std::optional<std::vector<Pairing>> PairingFile::read(Error *error) const {
  const auto text = readText(error);
  const auto settings = text ? platform_linux::readSettings(*text, error) : std::nullopt;
  if (!settings) {
    if (text && error != nullptr) {
      error->description = path_ + ", " + error->description;
    }
    return std::nullopt;
  }
  std::vector<Pairing> pairings;
  for (const auto &setting : *settings) {
    if (std::holds_alternative<platform::UnusableValue>(setting.value)) {
      continue;
    }
    auto pairing = pairingFrom(setting);
    if (!pairing) {
      base::report(error, "pairings", 0,
                   path_ + " holds no public-key hash of 40 digits for \"" + setting.key + "\"");
      return std::nullopt;
    }
    pairings.push_back(std::move(*pairing));
  }
  return pairings;
}

bool PairingFile::write(std::span<const Pairing> pairings, Error *error) const {
  auto text = readText(error);
  const auto before = text ? read(error) : std::nullopt;
  if (!before) {
    return false;
  }
  if (text->empty()) {
    text = kFirstLine;
  }
  for (const Pairing &old : *before) {
    text = text ? platform_linux::withSetting(*text, old.user, std::nullopt, error) : text;
  }
  for (const Pairing &pairing : pairings) {
    text = text ? platform_linux::withSetting(*text, pairing.user,
                                              encodings::hexString(pairing.publicKeyHash), error)
                : text;
  }
  return text && base::makeFolderForAll(path_.substr(0, path_.rfind('/')), error) &&
         base::replaceFile(path_, base::viewOf(*text), 0600, error);
}

PairingFile pairingFile() {
  return PairingFile(base::rooted(kPairingsPath));
}

Failure unusablePairings(const Error &error, const std::string &command) {
  return failureFrom(error, command, "sudo ls -l " + base::rooted(kPairingsPath));
}

std::string listingOf(std::span<const Pairing> pairings) {
  std::string listing = std::string(identity::kListingTokenLine) + "\n";
  if (!pairings.empty()) {
    listing.append(identity::kListingPairedLine).append("\n");
  }
  for (const Pairing &pairing : pairings) {
    listing += encodings::hexString(pairing.publicKeyHash) + "\t" + pairing.user + "\n";
  }
  return listing;
}

}  // namespace ctl
