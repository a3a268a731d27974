#include "crypto/PublicKey.hpp"

#include <gtest/gtest.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <functional>

#include "crypto/Digest.hpp"
#include "crypto/MadeIdentities.hpp"

namespace {

// Content of the DER element at the front of `der`, which then begins behind it.
ByteView takeElement(ByteView &der) {
  std::size_t length = der[1];
  std::size_t header = 2;
  if (length >= 0x80) {
    const std::size_t digits = length & 0x7f;
    length = 0;
    for (; header < 2 + digits; ++header) {
      length = length << 8 | der[header];
    }
  }
  const ByteView content = der.subspan(header, length);
  der = der.subspan(header + length);
  return content;
}

// The subjectPublicKey of a SubjectPublicKeyInfo: RFC 3279 puts the RSAPublicKey or the point
// there.
ByteView subjectPublicKey(ByteView info) {
  ByteView sequence = takeElement(info);
  takeElement(sequence);
  return takeElement(sequence).subspan(1);
}

class ExportedKey : public testing::TestWithParam<const char *> {};

TEST_P(ExportedKey, IsWhatStandsInTheSubjectPublicKeyInfo) {
  const crypto::PublicKey key = madeKey(GetParam()).publicKey();
  const Bytes info = key.subjectPublicKeyInfo();
  EXPECT_TRUE(base::equal(key.externalRepresentation().value(), subjectPublicKey(info)));
}

INSTANTIATE_TEST_SUITE_P(Types, ExportedKey, testing::Values("RSA", "EC", "ED25519"),
                         [](const auto &row) { return std::string(row.param); });

TEST(PublicKey, ExportsAPointUncompressedWhateverFormTheCertificateHolds) {
  const crypto::PrivateKey key = madeKey("EC");
  EVP_PKEY *raw = EVP_PKEY_dup(key.native());
  EVP_PKEY_set_utf8_string_param(raw, OSSL_PKEY_PARAM_EC_POINT_CONVERSION_FORMAT,
                                 OSSL_PKEY_EC_POINT_CONVERSION_FORMAT_COMPRESSED);
  const Bytes info =
      crypto::PublicKey(std::shared_ptr<EVP_PKEY>(raw, EVP_PKEY_free)).subjectPublicKeyInfo();
  ASSERT_EQ(subjectPublicKey(info).size(), 33u);
  const std::uint8_t *position = info.data();
  const crypto::PublicKey compressed(std::shared_ptr<EVP_PKEY>(
      d2i_PUBKEY(nullptr, &position, static_cast<long>(info.size())), EVP_PKEY_free));
  EXPECT_EQ(compressed.externalRepresentation(), key.publicKey().externalRepresentation());
}

TEST(PublicKey, HasNoExportedFormOfAnotherType) {
  Error error;
  EXPECT_FALSE(madeKey("X25519").publicKey().externalRepresentation(&error));
  EXPECT_EQ(error.description, "a key of type X25519 has no exported form");
}

TEST(PublicKey, DescribesItselfForPeople) {
  EXPECT_EQ(madeKey("RSA").publicKey().description(), "RSA-2048");
  EXPECT_EQ(madeKey("EC").publicKey().description(), "EC prime256v1");
  EXPECT_EQ(madeKey("ED25519").publicKey().description(), "Ed25519");
}

const Bytes kChallenge(16, 0x5a);

// A signature as most programs make it: over a DigestInfo with SHA-256, or with PSS or ECDSA.
Bytes digestSignature(const crypto::PrivateKey &key, bool pss) {
  EVP_MD_CTX *context = EVP_MD_CTX_new();
  EVP_PKEY_CTX *parameters = nullptr;
  Bytes signature(512);
  std::size_t length = signature.size();
  EXPECT_EQ(EVP_DigestSignInit(context, &parameters, EVP_sha256(), nullptr, key.native()), 1);
  EXPECT_TRUE(!pss || EVP_PKEY_CTX_set_rsa_padding(parameters, RSA_PKCS1_PSS_PADDING) == 1);
  EXPECT_EQ(EVP_DigestSign(context, signature.data(), &length, kChallenge.data(), 16), 1);
  EVP_MD_CTX_free(context);
  signature.resize(length);
  return signature;
}

Bytes rawSignature(const char *keyType, ByteView data) {
  return madeKey(keyType).signRawPKCS1(data).value();
}

struct SignatureCase {
  const char *name;
  const char *keyType;
  std::function<Bytes()> signature;
  bool isAccepted;
};

class RawSignature : public testing::TestWithParam<SignatureCase> {};

TEST_P(RawSignature, IsJudged) {
  const crypto::PublicKey key = madeKey(GetParam().keyType).publicKey();
  EXPECT_EQ(key.verifyRawPKCS1(GetParam().signature(), kChallenge), GetParam().isAccepted);
}

INSTANTIATE_TEST_SUITE_P(
    Signatures, RawSignature,
    testing::Values(
        SignatureCase{"OverTheDataItself", "RSA", [] { return rawSignature("RSA", kChallenge); },
                      true},
        SignatureCase{"OverADigestInfo", "RSA",
                      [] { return digestSignature(madeKey("RSA"), /*pss=*/false); }, false},
        SignatureCase{"WithPSS", "RSA",
                      [] { return digestSignature(madeKey("RSA"), /*pss=*/true); }, false},
        SignatureCase{"OverTheBareDigest", "RSA",
                      [] { return rawSignature("RSA", crypto::sha256Digest(kChallenge)); }, false},
        SignatureCase{"OverOneByteMore", "RSA", [] { return rawSignature("RSA", Bytes(17, 0x5a)); },
                      false},
        SignatureCase{
            "OfAnotherKey", "RSA",
            [] { return crypto::PrivateKey::generateRSA(2048)->signRawPKCS1(kChallenge).value(); },
            false},
        SignatureCase{"Empty", "RSA", [] { return Bytes(); }, false},
        SignatureCase{"OfAnEllipticCurve", "EC",
                      [] { return digestSignature(madeKey("EC"), /*pss=*/false); }, false}),
    [](const auto &row) { return std::string(row.param.name); });

}  // namespace
