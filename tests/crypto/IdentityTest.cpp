#include "crypto/Identity.hpp"

#include <gtest/gtest.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>
#include <openssl/provider.h>

#include <functional>

#include "crypto/MadeIdentities.hpp"

namespace {

const crypto::Identity &owner() {
  static const crypto::Identity identity = madeIdentity("RSA", "owner");
  return identity;
}

std::string keyPEM() {
  return std::string(base::textOf(owner().key.pem().reveal()));
}
std::string ownPEM() {
  return owner().certificate.pem();
}
std::string foreignPEM() {
  return madeIdentity("EC", "foreign").certificate.pem();
}

std::string pemOf(const crypto::Identity &identity) {
  return std::string(base::textOf(identity.key.pem().reveal())) + identity.certificate.pem();
}

std::string contentOf(BIO *buffer) {
  char *data = nullptr;
  const long length = BIO_get_mem_data(buffer, &data);
  std::string content(data, static_cast<std::size_t>(length));
  BIO_free(buffer);
  return content;
}

std::string encryptedKeyPEM() {
  BIO *buffer = BIO_new(BIO_s_mem());
  PEM_write_bio_PKCS8PrivateKey(buffer, owner().key.native(), EVP_aes_128_cbc(), "secret", 6,
                                nullptr, nullptr);
  return contentOf(buffer);
}

// As the library's own tool writes it: the curve in a block of its own before the key.
std::string curveAndKeyPEM() {
  const crypto::Identity identity = madeIdentity("EC", "curve");
  BIO *buffer = BIO_new(BIO_s_mem());
  PEM_write_bio_Parameters(buffer, identity.key.native());
  PEM_write_bio_PrivateKey_traditional(buffer, identity.key.native(), nullptr, nullptr, 0, nullptr,
                                       nullptr);
  return contentOf(buffer) + identity.certificate.pem();
}

std::string curveAndPublicKeyPEM() {
  BIO *buffer = BIO_new(BIO_s_mem());
  PEM_write_bio_Parameters(buffer, madeKey("EC").native());
  PEM_write_bio_PUBKEY(buffer, madeKey("EC").native());
  return contentOf(buffer);
}

struct Package {
  const char *password = "secret";
  int keyCipher = NID_aes_256_cbc;
  int certificateCipher = NID_aes_256_cbc;
  OSSL_LIB_CTX *context = nullptr;
  long macRounds = 2048;  // written into the file afterwards, so that nobody derives them
};

std::string packaged(const Package &package) {
  PKCS12 *made = PKCS12_create_ex(
      package.password, "owner", owner().key.native(), owner().certificate.native(), nullptr,
      package.keyCipher, package.certificateCipher, 2048, 2048, 0, package.context, nullptr);
  const ASN1_INTEGER *rounds = nullptr;
  PKCS12_get0_mac(nullptr, nullptr, nullptr, &rounds, made);
  ASN1_INTEGER_set(const_cast<ASN1_INTEGER *>(rounds), package.macRounds);
  BIO *buffer = BIO_new(BIO_s_mem());
  i2d_PKCS12_bio(buffer, made);
  PKCS12_free(made);
  return contentOf(buffer);
}

std::string packagedLongAgo() {
  OSSL_LIB_CTX *context = OSSL_LIB_CTX_new();
  OSSL_PROVIDER *providers[] = {OSSL_PROVIDER_load(context, "default"),
                                OSSL_PROVIDER_load(context, "legacy")};
  std::string file = packaged({.keyCipher = NID_pbe_WithSHA1And3_Key_TripleDES_CBC,
                               .certificateCipher = NID_pbe_WithSHA1And40BitRC2_CBC,
                               .context = context});
  for (OSSL_PROVIDER *provider : providers) {
    OSSL_PROVIDER_unload(provider);
  }
  OSSL_LIB_CTX_free(context);
  return file;
}

struct IdentityCase {
  const char *name;
  std::function<std::string()> file;
  const char *password;
  const char *refusal;  // the error's domain, null if it is read
};

class IdentityFile : public testing::TestWithParam<IdentityCase> {};

TEST_P(IdentityFile, IsRead) {
  const SecretText password(GetParam().password == nullptr ? "" : GetParam().password);
  Error error;
  const std::string file = GetParam().file();
  const auto identity = crypto::readIdentity(
      base::viewOf(file), GetParam().password == nullptr ? nullptr : &password, &error);
  if (GetParam().refusal != nullptr) {
    EXPECT_FALSE(identity);
    EXPECT_EQ(error.domain, GetParam().refusal) << error.description;
    return;
  }
  ASSERT_TRUE(identity) << error.description;
  EXPECT_EQ(identity->key.publicKey().externalRepresentation(),
            identity->certificate.publicKey()->externalRepresentation());
  EXPECT_TRUE(identity->certificate.commonName() != "foreign");
}

INSTANTIATE_TEST_SUITE_P(
    Files, IdentityFile,
    testing::Values(
        IdentityCase{"KeyFirst", [] { return keyPEM() + ownPEM(); }, nullptr, nullptr},
        IdentityCase{"CertificatesFirst", [] { return foreignPEM() + ownPEM() + keyPEM(); },
                     nullptr, nullptr},
        IdentityCase{"CurveBeforeKey", curveAndKeyPEM, nullptr, nullptr},
        IdentityCase{"Ed25519", [] { return pemOf(madeIdentity("ED25519", "edward")); }, nullptr,
                     nullptr},
        IdentityCase{"PublicKeyAndCurveAlone", [] { return curveAndPublicKeyPEM() + ownPEM(); },
                     nullptr, "openssl"},
        IdentityCase{"EncryptedKey", [] { return encryptedKeyPEM() + ownPEM(); }, "secret",
                     nullptr},
        IdentityCase{"WrongPasswordForKey", [] { return encryptedKeyPEM() + ownPEM(); }, "other",
                     "password"},
        IdentityCase{"NoPasswordForKey", [] { return encryptedKeyPEM() + ownPEM(); }, nullptr,
                     "password"},
        IdentityCase{"ForeignCertificate", [] { return keyPEM() + foreignPEM(); }, nullptr,
                     "crypto"},
        IdentityCase{"KeyAlone", keyPEM, nullptr, "crypto"},
        IdentityCase{"CertificateAlone", ownPEM, nullptr, "openssl"},
        IdentityCase{"Package", [] { return packaged({}); }, "secret", nullptr},
        IdentityCase{"WrongPasswordForPackage", [] { return packaged({}); }, "other", "password"},
        IdentityCase{"EmptyPassword", [] { return packaged({.password = ""}); }, nullptr, nullptr},
        IdentityCase{"NullPassword", [] { return packaged({.password = nullptr}); }, nullptr,
                     nullptr},
        IdentityCase{"PackageWithRC2", packagedLongAgo, "secret", nullptr},
        IdentityCase{"RoundsInAllAboveTheBound", [] { return packaged({.macRounds = 1'999'999}); },
                     "secret", "crypto"},
        IdentityCase{"RoundsBelowNothing", [] { return packaged({.macRounds = -1}); }, "secret",
                     "crypto"},
        IdentityCase{"TruncatedPackage", [] { return packaged({}).substr(0, 900); }, "secret",
                     "openssl"},
        IdentityCase{"Empty", [] { return std::string(); }, nullptr, "openssl"}),
    [](const auto &row) { return std::string(row.param.name); });

}  // namespace
