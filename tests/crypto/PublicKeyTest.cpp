#include "crypto/PublicKey.hpp"

#include <gtest/gtest.h>

#include "crypto/KeyParts.hpp"
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
  EXPECT_FALSE(madeKey("X25519").publicKey().externalRepresentation());
}

TEST(PublicKey, KnowsItsCurveAndThePointsOnIt) {
  const crypto::PublicKey key = madeKey("EC").publicKey();
  EXPECT_EQ(key.sizeInBytes(), 32U);
  EXPECT_EQ(crypto::curveIdentifierOf(key), fakes::bytesOfHex("06082a8648ce3d030107"));
  for (const auto &[name, bytes, identifier] : {std::tuple("P-384", 48U, "06052b81040022"),
                                                {"P-521", 66U, "06052b81040023"},
                                                {"secp256k1", 32U, ""}}) {
    const crypto::PrivateKey other(
        std::shared_ptr<EVP_PKEY>(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", name), EVP_PKEY_free));
    EXPECT_EQ(other.publicKey().sizeInBytes(), bytes);
    EXPECT_EQ(crypto::curveIdentifierOf(other.publicKey()).value_or(Bytes{}),
              fakes::bytesOfHex(identifier));
  }
  EXPECT_FALSE(crypto::curveIdentifierOf(madeKey("RSA").publicKey()));
  EXPECT_EQ(crypto::rsaPartsOf(madeKey("RSA").publicKey())->publicExponent, (Bytes{1, 0, 1}));
  Bytes point = key.externalRepresentation().value();
  EXPECT_TRUE(crypto::isPointFor(key, point));
  EXPECT_FALSE(crypto::isPointFor(key, ByteView(point).first(33)));
  EXPECT_FALSE(crypto::isPointFor(madeKey("RSA").publicKey(), point));
  point[64] ^= 1;
  EXPECT_FALSE(crypto::isPointFor(key, point)) << "not on the curve";
}

}  // namespace
