#include "crypto/PrivateKey.hpp"

#include <gtest/gtest.h>

#include "fakes/MadeKeys.hpp"

namespace {

using fakes::bytesOfHex;
using fakes::madeKey;

TEST(PrivateKey, RefusesDataThatDoesNotFitItsModulusOrType) {
  const crypto::PrivateKey key = madeKey("RSA");
  EXPECT_TRUE(key.signRawPKCS1(Bytes(256 - 11)));
  EXPECT_FALSE(key.signRawPKCS1(Bytes(256 - 10)));
  EXPECT_FALSE(key.rawRSA(Bytes(255)));
  EXPECT_FALSE(key.rawRSA(Bytes(257)));
  EXPECT_FALSE(key.rawRSA(Bytes(256, 0xff)));  // above the modulus
  const Bytes digest(32, 1);
  EXPECT_FALSE(madeKey("EC").signRawPKCS1(digest));
  EXPECT_FALSE(madeKey("EC").rawRSA(digest));
  EXPECT_FALSE(madeKey("EC").signEd25519(digest));
  EXPECT_FALSE(key.signDigestECDSA(digest));
  EXPECT_FALSE(key.deriveECDH(digest));
}

TEST(PrivateKey, SignsWithEd25519AsInRFC8032) {
  const auto key = crypto::PrivateKey::fromPKCS8(
      bytesOfHex("302e020100300506032b657004220420"
                 "9d61b19deffd5a60ba844af492ec2cc44449c5697b326919703bac031cae7f60"));
  ASSERT_TRUE(key);
  EXPECT_EQ(key->publicKey().externalRepresentation(),
            bytesOfHex("d75a980182b10ab7d54bfed3c964073a0ee172f3daa62325af021a68f707511a"));
  EXPECT_EQ(key->signEd25519({}),
            bytesOfHex("e5564300c360ac729086e2cc806e828a84877f1eb8e5d974d873e065224901555fb88215"
                       "90a33bacc61e39701cf9b46bd25bf5f0595bbe24655141438e7a100b"));
}

TEST(PrivateKey, AgreesWithAPeerOnOneCoordinate) {
  const crypto::PrivateKey mine = madeKey("EC");
  const crypto::PrivateKey theirs = *crypto::PrivateKey::generateP256();
  Bytes theirPoint = *theirs.publicKey().externalRepresentation();
  const SecretBytes shared = mine.deriveECDH(theirPoint).value();
  EXPECT_EQ(shared.reveal().size(), 32u);
  const auto same = theirs.deriveECDH(*mine.publicKey().externalRepresentation());
  EXPECT_TRUE(base::equal(shared.reveal(), same->reveal()));

  theirPoint[64] ^= 1;
  EXPECT_FALSE(mine.deriveECDH(theirPoint)) << "not on the curve";
  theirPoint.resize(33);
  theirPoint[0] = 2;
  EXPECT_FALSE(mine.deriveECDH(theirPoint)) << "compressed";
  EXPECT_FALSE(mine.deriveECDH({}));
}

}  // namespace
