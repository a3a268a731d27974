#include "crypto/PrivateKey.hpp"

#include <gtest/gtest.h>

#include "crypto/KeyOperations.hpp"
#include "crypto/KeyParts.hpp"
#include "crypto/Signature.hpp"
#include "fakes/MadeKeys.hpp"

namespace {

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
  EXPECT_FALSE(madeKey("EC").deriveECDH({}));
  Bytes point = *madeKey("EC").publicKey().externalRepresentation();
  point.resize(33);
  point[0] = 2;
  EXPECT_FALSE(madeKey("EC").deriveECDH(point)) << "compressed";
  const SecretBytes stored = key.pkcs8();
  Bytes longer(stored.reveal().begin(), stored.reveal().end());
  EXPECT_TRUE(crypto::PrivateKey::fromPKCS8(longer));
  longer.push_back(0);
  EXPECT_FALSE(crypto::PrivateKey::fromPKCS8(longer));
}

TEST(PrivateKey, DoesWhatPublicKeysExpect) {
  const crypto::PrivateKey ours = madeKey("EC");
  const crypto::PrivateKey theirs = *crypto::PrivateKey::generateP256();
  const auto shared = ours.deriveECDH(*theirs.publicKey().externalRepresentation());
  EXPECT_EQ(shared->reveal().size(), 32U);
  EXPECT_TRUE(base::equal(theirs.deriveECDH(*ours.publicKey().externalRepresentation())->reveal(),
                          shared->reveal()));
  const Bytes message(3, 1);
  const crypto::PrivateKey edwards = madeKey("ED25519");
  Bytes signature = edwards.signEd25519(message).value();
  EXPECT_TRUE(crypto::verifyEd25519(edwards.publicKey(), signature, message));
  EXPECT_FALSE(crypto::verifyEd25519(edwards.publicKey(), signature, Bytes(3)));
  EXPECT_TRUE(
      crypto::verifyDigestECDSA(ours.publicKey(), ours.signDigestECDSA(message).value(), message));
}

// Keys whose signatures are made by this answer.
struct Elsewhere : crypto::KeyOperations {
  std::optional<Bytes> signPKCS1(ByteView /*data*/) override { return answer; }
  std::optional<Bytes> signBlock(ByteView /*block*/) override { return std::nullopt; }
  std::optional<SecretBytes> decryptBlock(ByteView /*block*/) override { return std::nullopt; }
  std::optional<Bytes> signECDSA(ByteView /*digest*/) override { return answer; }
  std::optional<Bytes> answer;
};

TEST(PrivateKey, MayLieElsewhereAsLongAsItLives) {
  auto place = std::make_shared<Elsewhere>();
  const std::weak_ptr<Elsewhere> observed = place;
  auto rsa = crypto::privateKeyDoneBy(place, madeKey("RSA").publicKey());
  auto ec = crypto::privateKeyDoneBy(place, madeKey("EC").publicKey());
  EXPECT_FALSE(crypto::privateKeyDoneBy(place, madeKey("ED25519").publicKey()));
  Error error;
  EXPECT_FALSE(rsa->rawRSA(Bytes(256, 1), &error));
  EXPECT_NE(error.description.find("the place of the private key refused"), std::string::npos);
  const Bytes digest(32, 1);
  for (const std::size_t size : {0, 63, 64, 256, 257}) {
    place->answer = Bytes(size, 1);
    std::fill_n(place->answer->begin(), std::min<std::size_t>(size, 32), 2);
    EXPECT_EQ(rsa->signRawPKCS1(digest).has_value(), size < 257);
    EXPECT_EQ(ec->signDigestECDSA(digest),
              size == 64 ? crypto::derSignature(*place->answer) : std::nullopt);
  }
  place->answer.reset();
  EXPECT_FALSE(rsa->signRawPKCS1(digest) || ec->signDigestECDSA(digest));
  place.reset();
  rsa.reset();
  EXPECT_FALSE(observed.expired());
  ec.reset();
  EXPECT_TRUE(observed.expired());
}

}  // namespace
