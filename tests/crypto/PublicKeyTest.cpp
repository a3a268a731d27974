#include "crypto/PublicKey.hpp"

#include <gtest/gtest.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include "fakes/MadeKeys.hpp"

namespace {

using fakes::madeKey;

TEST(PublicKey, ExportsWhatStandsInTheSubjectPublicKeyInfo) {
  struct Case {
    const char *type;
    std::size_t header;  // before the key in a SubjectPublicKeyInfo (RFC 3279, RFC 8410)
    std::size_t size;
    const char *description;
  };
  for (const Case &row : {Case{"RSA", 24, 270, "RSA-2048"}, Case{"EC", 26, 65, "EC prime256v1"},
                          Case{"ED25519", 12, 32, "Ed25519"}}) {
    const crypto::PublicKey key = madeKey(row.type).publicKey();
    const Bytes exported = key.externalRepresentation().value();
    EXPECT_EQ(exported.size(), row.size);
    const Bytes info = key.subjectPublicKeyInfo();
    EXPECT_TRUE(base::equal(exported, ByteView(info).subspan(row.header))) << row.type;
    EXPECT_EQ(key.description(), row.description);
  }
  Error error;
  EXPECT_FALSE(madeKey("X25519").publicKey().externalRepresentation(&error));
  EXPECT_EQ(error.description, "a key of type X25519 has no exported form");
}

TEST(PublicKey, ExportsAPointUncompressedWhateverFormTheCertificateHolds) {
  const crypto::PrivateKey key = madeKey("EC");
  EVP_PKEY *raw = EVP_PKEY_dup(key.native());
  EVP_PKEY_set_utf8_string_param(raw, OSSL_PKEY_PARAM_EC_POINT_CONVERSION_FORMAT,
                                 OSSL_PKEY_EC_POINT_CONVERSION_FORMAT_COMPRESSED);
  const Bytes info =
      crypto::PublicKey(std::shared_ptr<EVP_PKEY>(raw, EVP_PKEY_free)).subjectPublicKeyInfo();
  ASSERT_EQ(info.size(), 26u + 33u);
  const std::uint8_t *position = info.data();
  const crypto::PublicKey compressed(std::shared_ptr<EVP_PKEY>(
      d2i_PUBKEY(nullptr, &position, static_cast<long>(info.size())), EVP_PKEY_free));
  EXPECT_EQ(compressed.externalRepresentation(), key.publicKey().externalRepresentation());
}

// As most programs sign: over a DigestInfo with SHA-256, or with PSS.
Bytes digestSignature(int padding, const Bytes &message) {
  EVP_MD_CTX *context = EVP_MD_CTX_new();
  EVP_PKEY_CTX *parameters = nullptr;
  Bytes signature(256);
  std::size_t length = signature.size();
  EXPECT_EQ(
      EVP_DigestSignInit(context, &parameters, EVP_sha256(), nullptr, madeKey("RSA").native()), 1);
  EXPECT_EQ(EVP_PKEY_CTX_set_rsa_padding(parameters, padding), 1);
  EXPECT_EQ(EVP_DigestSign(context, signature.data(), &length, message.data(), message.size()), 1);
  EVP_MD_CTX_free(context);
  return signature;
}

TEST(PublicKey, AcceptsASignatureOverExactlyTheDataItself) {
  const Bytes challenge(16, 0x5a);
  const crypto::PrivateKey key = madeKey("RSA");
  const auto accepts = [&](const Bytes &signature) {
    return key.publicKey().verifyRawPKCS1(signature, challenge);
  };
  EXPECT_TRUE(accepts(key.signRawPKCS1(challenge).value()));
  EXPECT_FALSE(accepts(key.signRawPKCS1(Bytes(17, 0x5a)).value()));
  EXPECT_FALSE(accepts(digestSignature(RSA_PKCS1_PADDING, challenge)));
  EXPECT_FALSE(accepts(digestSignature(RSA_PKCS1_PSS_PADDING, challenge)));
  EXPECT_FALSE(accepts({}));
}

}  // namespace
