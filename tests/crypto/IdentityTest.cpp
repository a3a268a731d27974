#include "crypto/Identity.hpp"

#include <gtest/gtest.h>
#include <openssl/pkcs12.h>

#include "fakes/MadeKeys.hpp"

namespace {

using fakes::madeIdentity;
using fakes::pemOf;

const crypto::Identity &owner() {
  static const crypto::Identity identity = madeIdentity("RSA", "owner");
  return identity;
}

// PKCS #12 with these rounds written into the file afterwards, so that nobody derives them.
std::string packaged(long macRounds) {
  PKCS12 *made =
      PKCS12_create("secret", "owner", owner().key.native(), owner().certificate.native(), nullptr,
                    NID_aes_256_cbc, NID_aes_256_cbc, 2048, 2048, 0);
  const ASN1_INTEGER *rounds = nullptr;
  PKCS12_get0_mac(nullptr, nullptr, nullptr, &rounds, made);
  ASN1_INTEGER_set(const_cast<ASN1_INTEGER *>(rounds), macRounds);
  std::string file(static_cast<std::size_t>(i2d_PKCS12(made, nullptr)), '\0');
  auto *place = reinterpret_cast<unsigned char *>(file.data());
  i2d_PKCS12(made, &place);
  PKCS12_free(made);
  return file;
}

TEST(IdentityFile, IsReadWithItsPasswordOrRefused) {
  const std::string key(base::textOf(owner().key.pem().reveal()));
  const std::string own = owner().certificate.pem();
  const std::string foreign = madeIdentity("EC", "foreign").certificate.pem();
  const std::string encrypted = fakes::encryptedPemOf(owner(), "secret");
  struct Case {
    const char *name;
    std::string file;
    const char *password;  // null: none is given
    const char *refusal;   // the error's domain, null if it is read
  };
  const Case kCases[] = {
      {"key first", key + own, nullptr, nullptr},
      {"certificates first", foreign + own + key, nullptr, nullptr},
      {"Ed25519", pemOf(madeIdentity("ED25519", "edward")), nullptr, nullptr},
      {"encrypted key", encrypted, "secret", nullptr},
      {"wrong password for a key", encrypted, "other", "password"},
      {"foreign certificate", key + foreign, nullptr, "crypto"},
      {"package", packaged(2048), "secret", nullptr},
      {"wrong password for a package", packaged(2048), "other", "password"},
      {"rounds in all above the bound", packaged(1'999'999), "secret", "crypto"},
      {"truncated package", packaged(2048).substr(0, 900), "secret", "openssl"},
  };
  for (const Case &row : kCases) {
    SCOPED_TRACE(row.name);
    const SecretText password(row.password == nullptr ? "" : row.password);
    Error error;
    const auto identity = crypto::readIdentity(
        base::viewOf(row.file), row.password == nullptr ? nullptr : &password, &error);
    ASSERT_EQ(identity.has_value(), row.refusal == nullptr) << error.description;
    if (!identity) {
      EXPECT_EQ(error.domain, row.refusal) << error.description;
      continue;
    }
    EXPECT_EQ(identity->key.publicKey().externalRepresentation(),
              identity->certificate.publicKey()->externalRepresentation());
    EXPECT_NE(identity->certificate.commonName(), "foreign");
  }
}

}  // namespace
