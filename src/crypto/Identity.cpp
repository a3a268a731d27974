#include "crypto/Identity.hpp"

#include <openssl/err.h>
#include <openssl/x509.h>

#include <string_view>
#include <vector>

#include "crypto/Pkcs12.hpp"

namespace crypto {
namespace {

std::optional<Identity> paired(const std::vector<PrivateKey> &keys,
                               const std::vector<Certificate> &certificates, Error *error) {
  for (const PrivateKey &key : keys) {
    for (const Certificate &certificate : certificates) {
      if (belongTogether(certificate, key)) {
        return Identity{certificate, key};
      }
    }
  }
  const char *reason = "the file holds no certificate that belongs to its key";
  if (keys.empty()) {
    reason = "the file holds no private key";
  } else if (certificates.empty()) {
    reason = "the file holds no certificate";
  }
  base::report(error, "crypto", 0, reason);
  return std::nullopt;
}

std::optional<Identity> readPEM(ByteView file, const SecretText *password, Error *error) {
  const std::optional<PrivateKey> key = PrivateKey::fromPEM(file, password, error);
  return key ? paired({*key}, Certificate::allFromPEM(file), error) : std::nullopt;
}

std::optional<Identity> readPackage(ByteView file, const SecretText *password, Error *error) {
  const std::optional<Pkcs12Content> content = readPkcs12(file, password, error);
  if (!content) {
    return std::nullopt;
  }
  std::vector<PrivateKey> keys;
  for (const SecretBytes &der : content->keys) {
    if (const auto key = PrivateKey::fromPKCS8(der.reveal())) {
      keys.push_back(*key);
    }
  }
  std::vector<Certificate> certificates;
  for (const Bytes &der : content->certificates) {
    if (const auto certificate = Certificate::fromDER(der)) {
      certificates.push_back(*certificate);
    }
  }
  return paired(keys, certificates, error);
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
