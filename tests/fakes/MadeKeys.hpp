#pragma once

#include <openssl/evp.h>
#include <openssl/pem.h>

#include <memory>
#include <string>

#include "crypto/Identity.hpp"

// Keys, certificates and their files for tests.
namespace fakes {

// A key of this type ("RSA", "EC" or the library's name of another), those of the first two made
// once.
inline crypto::PrivateKey madeKey(const std::string &type) {
  if (type == "RSA") {
    static const crypto::PrivateKey rsa = *crypto::PrivateKey::generateRSA(2048);
    return rsa;
  }
  if (type == "EC") {
    static const crypto::PrivateKey ec = *crypto::PrivateKey::generateP256();
    return ec;
  }
  return crypto::PrivateKey(
      std::shared_ptr<EVP_PKEY>(EVP_PKEY_Q_keygen(nullptr, nullptr, type.c_str()), EVP_PKEY_free));
}

inline crypto::Identity identityOf(const crypto::PrivateKey &key, const std::string &commonName) {
  return {*crypto::Certificate::selfSigned(key, commonName, /*days=*/30, /*serverName=*/true), key};
}

inline crypto::Identity madeIdentity(const char *type, const std::string &commonName) {
  return identityOf(madeKey(type), commonName);
}

// A fresh P-256 identity.
inline crypto::Identity makeIdentity(const std::string &commonName) {
  return identityOf(*crypto::PrivateKey::generateP256(), commonName);
}

// As a file holds it.
inline std::string pemOf(const crypto::Identity &identity) {
  return identity.certificate.pem() + std::string(base::textOf(identity.key.pem().reveal()));
}

// As a file holds it whose key is encrypted.
inline std::string encryptedPemOf(const crypto::Identity &identity, const std::string &password) {
  const std::unique_ptr<BIO, decltype(&BIO_free)> buffer(BIO_new(BIO_s_mem()), BIO_free);
  PEM_write_bio_PKCS8PrivateKey(buffer.get(), identity.key.native(), EVP_aes_128_cbc(),
                                password.data(), static_cast<int>(password.size()), nullptr,
                                nullptr);
  char *text = nullptr;
  const long length = BIO_get_mem_data(buffer.get(), &text);
  return identity.certificate.pem() + std::string(text, static_cast<std::size_t>(length));
}

}  // namespace fakes
