#pragma once

#include <openssl/pem.h>
#include <openssl/pkcs12.h>

#include "crypto/Identity.hpp"

// Keys, certificates and their files for tests.
namespace fakes {

inline Bytes bytesOfHex(const std::string &digits) {
  Bytes bytes(digits.size() / 2);
  std::size_t length = 0;
  OPENSSL_hexstr2buf_ex(bytes.data(), bytes.size(), &length, digits.c_str(), /*sep=*/'\0');
  return bytes;
}

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

// The bytes of a package, which is released.
inline std::string encoded(PKCS12 *package) {
  std::string file(static_cast<std::size_t>(i2d_PKCS12(package, nullptr)), '\0');
  auto *place = reinterpret_cast<unsigned char *>(file.data());
  i2d_PKCS12(package, &place);
  PKCS12_free(package);
  return file;
}

// A package of these bags, neither encrypted nor with a digest.
inline std::string packageOf(STACK_OF(PKCS12_SAFEBAG) * bags) {
  STACK_OF(PKCS7) *safes = nullptr;
  PKCS12_add_safe(&safes, bags, -1, 0, nullptr);
  std::string file = encoded(PKCS12_add_safes(safes, 0));
  sk_PKCS7_pop_free(safes, PKCS7_free);
  sk_PKCS12_SAFEBAG_pop_free(bags, PKCS12_SAFEBAG_free);
  return file;
}

inline PKCS12 *makePackage(const crypto::Identity &owner, const char *password,
                           int cipher = NID_aes_256_cbc) {
  return PKCS12_create(password, "owner", owner.key.native(), owner.certificate.native(), nullptr,
                       cipher, cipher, /*iter=*/2, /*mac_iter=*/2, 0);
}

}  // namespace fakes
