#pragma once

#include <openssl/evp.h>

#include <memory>
#include <string>

#include "crypto/Identity.hpp"

// Keys and identities for tests, each made once.
inline crypto::PrivateKey madeKey(const char *type) {
  if (std::string(type) == "RSA") {
    static const crypto::PrivateKey rsa = *crypto::PrivateKey::generateRSA(2048);
    return rsa;
  }
  if (std::string(type) == "EC") {
    static const crypto::PrivateKey ec = *crypto::PrivateKey::generateP256();
    return ec;
  }
  return crypto::PrivateKey(
      std::shared_ptr<EVP_PKEY>(EVP_PKEY_Q_keygen(nullptr, nullptr, type), EVP_PKEY_free));
}

inline crypto::Identity madeIdentity(const char *type, const std::string &commonName) {
  const crypto::PrivateKey key = madeKey(type);
  return {*crypto::Certificate::selfSigned(key, commonName, 30, /*serverName=*/true), key};
}

inline std::string pemOf(const crypto::Identity &identity) {
  return identity.certificate.pem() + std::string(base::textOf(identity.key.pem().reveal()));
}
