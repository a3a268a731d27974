#include "crypto/PrivateKey.hpp"

#include <gtest/gtest.h>
#include <openssl/err.h>

#include "crypto/ErrorQueue.hpp"
#include "crypto/KeyOperations.hpp"
#include "crypto/KeyParts.hpp"
#include "crypto/Library.hpp"
#include "crypto/Signature.hpp"
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

// The private keys of MadeKeys as if they lay elsewhere; with an answer of its own, that one.
struct Elsewhere : crypto::KeyOperations {
  std::optional<Bytes> signPKCS1(ByteView data) override {
    return answer ? *answer : madeKey("RSA").signRawPKCS1(data);
  }
  std::optional<Bytes> signBlock(ByteView /*block*/) override { return std::nullopt; }
  std::optional<SecretBytes> decryptBlock(ByteView block) override {
    return madeKey("RSA").rawRSA(block);
  }
  std::optional<Bytes> signECDSA(ByteView digest) override {
    return answer ? *answer
                  : crypto::joinedSignature(madeKey("EC").signDigestECDSA(digest).value(), 32);
  }
  std::optional<std::optional<Bytes>> answer;
};

TEST(PrivateKey, MayLieElsewhereAsLongAsItLives) {
  auto place = std::make_shared<Elsewhere>();
  const std::weak_ptr<Elsewhere> observed = place;
  auto rsa = crypto::privateKeyDoneBy(place, madeKey("RSA").publicKey());
  auto ec = crypto::privateKeyDoneBy(place, madeKey("EC").publicKey());
  Error error;
  EXPECT_FALSE(crypto::privateKeyDoneBy(place, madeKey("ED25519").publicKey(), &error));
  EXPECT_TRUE(
      error.description.starts_with("no private key of this type can be used where it lies"));
  const Bytes digest(32, 1);
  const Bytes block(256, 1);
  EXPECT_EQ(rsa->signRawPKCS1(digest), madeKey("RSA").signRawPKCS1(digest));
  EXPECT_TRUE(base::equal(rsa->rawRSA(block)->reveal(), madeKey("RSA").rawRSA(block)->reveal()));
  EXPECT_FALSE(rsa->rawRSA(Bytes(256, 0xff), &error));
  EXPECT_NE(error.description.find("the place of the private key refused"), std::string::npos);
  EXPECT_TRUE(crypto::verifyDigestECDSA(madeKey("EC").publicKey(),
                                        ec->signDigestECDSA(digest).value(), digest));
  for (const auto &wrong : {std::optional<Bytes>(), std::optional(Bytes()),
                            std::optional(Bytes(63, 1)), std::optional(Bytes(257, 1))}) {
    place->answer = wrong;
    EXPECT_EQ(rsa->signRawPKCS1(digest).has_value(), wrong && wrong->size() < 257);
    EXPECT_FALSE(ec->signDigestECDSA(digest));
  }
  place.reset();
  rsa.reset();
  EXPECT_FALSE(observed.expired());
  ec.reset();
  EXPECT_TRUE(observed.expired());
}

TEST(KeptErrorQueue, IsPutBackAsItWas) {
  const auto take = [] {
    std::string entries;
    const auto append = [](const char *entry, std::size_t length, void *to) {
      static_cast<std::string *>(to)->append(entry, length);
      return 1;
    };
    ERR_print_errors_cb(append, &entries);
    return entries;
  };
  const auto fill = [] {
    ERR_raise_data(ERR_LIB_RSA, ERR_R_OPERATION_FAIL, "with a text");
    ERR_raise(ERR_LIB_EC, ERR_R_INIT_FAIL);
    ERR_set_mark();
  };
  fill();
  const auto filled = take();
  fill();
  {
    const crypto::KeptErrorQueue kept;
    EXPECT_EQ(ERR_peek_error(), 0U);
    ERR_raise(ERR_LIB_EC, ERR_R_PASSED_NULL_PARAMETER);
  }
  EXPECT_EQ(ERR_clear_last_mark(), 1);
  EXPECT_EQ(ERR_clear_last_mark(), 0);
  EXPECT_EQ(take(), filled);
  EXPECT_FALSE(crypto::libraryHasEnded());
  EXPECT_EQ(crypto::takeLibraryError(), "unknown error");
}

}  // namespace
