#include "remote/NewKey.hpp"

#include <pwd.h>
#include <unistd.h>

#include "base/Files.hpp"
#include "base/HostName.hpp"

namespace remote {
namespace {

// Nobody notices the end of a certificate that only names a key, until it refuses to work.
constexpr int kDays = 20 * 365;

std::optional<crypto::PrivateKey> makeKey(NewKeyType type, Error *error) {
  switch (type) {
    case NewKeyType::p256:
      return crypto::PrivateKey::generateP256(error);
    case NewKeyType::rsa2048:
      return crypto::PrivateKey::generateRSA(2048, error);
    case NewKeyType::rsa3072:
      return crypto::PrivateKey::generateRSA(3072, error);
  }
  return std::nullopt;
}

}  // namespace

std::optional<crypto::Identity> makeKeyFile(const std::string &path, NewKeyType type,
                                            std::string_view commonName, Error *error) {
  auto key = makeKey(type, error);
  if (!key) {
    return std::nullopt;
  }
  auto certificate = crypto::Certificate::selfSigned(*key, std::string(commonName), kDays,
                                                     /*serverName=*/false, error);
  if (!certificate) {
    return std::nullopt;
  }
  const SecretBytes keyText = key->pem();
  CleansedBytes content(keyText.reveal().begin(), keyText.reveal().end());
  base::append(content, base::viewOf(certificate->pem()));
  if (!base::replaceFile(path, content, 0600, error)) {
    return std::nullopt;
  }
  return crypto::Identity{std::move(*certificate), std::move(*key)};
}

std::string cardKeyPath(const std::string &home) {
  return home + "/card.pem";
}

std::string nameOfOwner() {
  const passwd *const entry = ::getpwuid(::getuid());
  return (entry == nullptr ? "user " + std::to_string(::getuid()) : std::string(entry->pw_name)) +
         "@" + base::hostName();
}

}  // namespace remote
