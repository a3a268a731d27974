#include "ctl/PackageImport.hpp"

#include <unistd.h>

#include <cstddef>
#include <ostream>
#include <set>
#include <string_view>
#include <vector>

#include "base/Files.hpp"
#include "base/Root.hpp"
#include "base/UUID.hpp"
#include "crypto/Pkcs12.hpp"
#include "ctl/Identities.hpp"
#include "ctl/KeychainOperations.hpp"
#include "ctl/KeychainTrouble.hpp"

namespace ctl {
namespace {

// A file beside the keychain, where root alone can look, gone with this at the latest.
class PrivateCopy {
 public:
  explicit PrivateCopy(ByteView content, Error *error)
      : path_(base::rooted("/var/lib/keyferry/import-" + UUID::random().text())) {
    constexpr unsigned kFolderMode = 0700;
    constexpr unsigned kFileMode = 0600;
    isMade_ = base::makeFolders(path_.substr(0, path_.rfind('/')), kFolderMode, error) &&
              base::replaceFile(path_, content, kFileMode, error);
  }
  ~PrivateCopy() { ::unlink(path_.c_str()); }
  PrivateCopy(const PrivateCopy &) = delete;
  PrivateCopy &operator=(const PrivateCopy &) = delete;

  [[nodiscard]] bool isMade() const { return isMade_; }
  [[nodiscard]] const std::string &path() const { return path_; }

 private:
  std::string path_;
  bool isMade_ = false;
};

std::string commandFor(const std::string &path) {
  return "kfyctl identity import " + path;
}

// The password that opens the file; nothing, with `failure` filled, if none does.
std::optional<SecretText> passwordThatFits(const std::string &path, ByteView content,
                                           const PasswordOptions &options, Failure &failure) {
  Error error;
  std::optional<SecretText> password = SecretText();
  bool isRead = !options.isGiven() && crypto::readPkcs12(content, /*password=*/nullptr, &error);
  if (!isRead && (options.isGiven() || error.domain == "password")) {
    password = options.take("Password for " + path + ": ", &error);
    isRead = password && crypto::readPkcs12(content, &*password, &error);
  }
  if (isRead) {
    return password;
  }
  const bool isPassword = error.domain == "password" || error.domain == "terminal";
  failure = {
      path + ": " + (password ? "" : "it wants a password, and ") + error.description,
      isPassword ? commandFor(path) + " --password-file FILE" : "kfyctl identity import --help"};
  return std::nullopt;
}

Outcome outcomeOf(CVNKeychain::ImportResult result, const std::string &path,
                  const Session &session) {
  switch (result) {
    case CVNKeychain::importDone:
      return std::nullopt;
    case CVNKeychain::importNotAdded:
      return keychainUnusable(session);
    case CVNKeychain::importUnreadable:
      return Failure{
          path + ": it holds no private key that can be read together with its certificate",
          "openssl pkcs12 -in " + path + " -info -noenc -nokeys"};
    case CVNKeychain::importKeyTooLarge:
      break;
  }
  return Failure{path +
                     ": a key in it is larger than 2048 bits, and the keychain takes none larger "
                     "from a PKCS #12 file; from a PEM file it does",
                 "(umask 077; openssl pkcs12 -in " + path + " -noenc -out " + path + ".pem) && " +
                     commandFor(path + ".pem")};
}

// Tells of the identities in the keychain that were not there before; how many they are.
std::size_t tellOfAllNew(const std::vector<IdentityRecord> &before, Session &session) {
  std::set<std::string> known;
  for (const IdentityRecord &record : before) {
    known.insert(hashOf(record));
  }
  std::size_t added = 0;
  Failure ignored;
  for (const IdentityRecord &record :
       allIdentities(session, ignored).value_or(std::vector<IdentityRecord>())) {
    if (known.insert(hashOf(record)).second) {
      tellOfNew(record, session);
      ++added;
    }
  }
  return added;
}

}  // namespace

bool isPackage(ByteView file) {
  return base::textOf(file).find("-----BEGIN ") == std::string_view::npos;
}

Outcome importPackage(const std::string &path, ByteView content, const PasswordOptions &options,
                      Session &session) {
  Failure failure;
  const auto password = passwordThatFits(path, content, options, failure);
  const auto before = password ? allIdentities(session, failure) : std::nullopt;
  if (!before) {
    return failure;
  }
  Error error;
  const PrivateCopy copy(content, &error);
  if (!copy.isMade()) {
    return failureFrom(error, commandFor(path));
  }
  Outcome outcome =
      outcomeOf(KeychainOperations(*session.keychain)->importNewP12AtURL(copy.path(), *password),
                path, session);
  const std::size_t added = tellOfAllNew(*before, session);
  if (!outcome && added == 0) {
    session.notes << "kfyctl: all that " << path << " holds is in the keychain already\n";
  }
  if (outcome && added > 0) {
    outcome->what += "; " + std::to_string(added) + " before it are in the keychain now";
  }
  return outcome;
}

}  // namespace ctl
