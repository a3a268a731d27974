#include "remote/AuthenticationKey.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>

#include "base/Descriptor.hpp"
#include "base/Files.hpp"
#include "remote/NewKey.hpp"

namespace remote {
namespace {

constexpr std::size_t kLargestKeyFile = 64 * 1024;

std::optional<crypto::Identity> readKey(const std::string &path, Error *error) {
  struct stat status{};
  if (::stat(path.c_str(), &status) == 0 && (status.st_mode & 077) != 0) {
    base::report(error, "file", 0,
                 path +
                     " can be read by others, so its key may be known to them: remove the file "
                     "for a fresh key and pair that one, or make it private with chmod 600");
    return std::nullopt;
  }
  const auto content = base::readFile(path, kLargestKeyFile, error);
  auto identity = content ? crypto::readIdentity(*content, /*password=*/nullptr, error)
                          : std::optional<crypto::Identity>();
  if (identity && identity->key.publicKey().type() != crypto::KeyType::rsa) {
    base::report(error, "file", 0, path + " holds no RSA key, and only those authenticate");
    return std::nullopt;
  }
  return identity;
}

}  // namespace

std::string authenticationKeyPath(const std::string &home) {
  return home + "/authentication.pem";
}

std::optional<crypto::Identity> authenticationKey(const std::string &home, Error *error) {
  if (!base::makeFolders(home, 0700, error)) {
    return std::nullopt;
  }
  // two processes at first use must get the same key
  const std::string lockPath = home + "/lock";
  const base::Descriptor lock(
      ::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!lock.isOpen() || ::flock(lock.get(), LOCK_EX) != 0) {
    base::reportErrno(error, errno, "cannot lock " + lockPath);
    return std::nullopt;
  }
  const std::string path = authenticationKeyPath(home);
  return base::fileExists(path)
             ? readKey(path, error)
             : makeKeyFile(path, NewKeyType::rsa2048, "kfy-remote authentication", error);
}

std::optional<Bytes> answerToChallenge(const std::optional<Bytes> &challenge,
                                       const crypto::Identity &authentication, Error *error) {
  if (!challenge || challenge->size() != kChallengeBytes) {
    base::report(error, "challenge", 0,
                 "sent a challenge that is not 16 bytes long; it was not signed");
    return std::nullopt;
  }
  return authentication.key.signRawPKCS1(*challenge, error);
}

}  // namespace remote
