#include "crypto/Identity.hpp"

#include <openssl/err.h>
#include <openssl/x509.h>

#include <string_view>
#include <utility>

namespace crypto {
namespace {

const char *reasonFor(bool hasKey, bool hasCertificate) {
  if (!hasKey) {
    return "the file holds no private key";
  }
  return hasCertificate ? "the file holds no certificate that belongs to its key"
                        : "the file holds no certificate";
}

std::optional<Identity> readPEM(ByteView file, const SecretText *password, Error *error) {
  const std::optional<PrivateKey> key = PrivateKey::fromPEM(file, password, error);
  if (!key) {
    return std::nullopt;
  }
  const std::vector<Certificate> certificates = Certificate::allFromPEM(file);
  for (const Certificate &certificate : certificates) {
    if (belongTogether(certificate, *key)) {
      return Identity{certificate, *key};
    }
  }
  base::report(error, "crypto", 0, reasonFor(/*hasKey=*/true, !certificates.empty()));
  return std::nullopt;
}

std::optional<Identity> readPackage(ByteView file, const SecretText *password, Error *error) {
  const std::optional<Pkcs12Content> content = readPkcs12(file, password, error);
  if (!content) {
    return std::nullopt;
  }
  for (std::optional<Identity> &identity : identitiesIn(*content)) {
    if (identity) {
      return std::move(identity);
    }
  }
  base::report(error, "crypto", 0,
               reasonFor(!content->keys.empty(), !content->certificates.empty()));
  return std::nullopt;
}

}  // namespace

bool belongTogether(const Certificate &certificate, const PrivateKey &key) {
  const bool isMatch = X509_check_private_key(certificate.native(), key.native()) == 1;
  ERR_clear_error();
  return isMatch;
}

std::optional<Identity> readIdentity(ByteView file, const SecretText *password, Error *error) {
  const bool isPEM = base::textOf(file).find("-----BEGIN ") != std::string_view::npos;
  return isPEM ? readPEM(file, password, error) : readPackage(file, password, error);
}

}  // namespace crypto
