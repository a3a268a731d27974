#include "crypto/Padding.hpp"

#include <gtest/gtest.h>

#include "crypto/PSS.hpp"
#include "crypto/RSAEncryption.hpp"
#include "fakes/MadeKeys.hpp"

namespace {

using fakes::madeKey;

using enum crypto::HashAlgorithm;

// A block after the private operation.
Bytes opened(const std::optional<Bytes> &block) {
  const SecretBytes secret = madeKey("RSA").rawRSA(block.value()).value();
  return {secret.reveal().begin(), secret.reveal().end()};
}

bool holds(const std::optional<SecretBytes> &secret, const Bytes &message) {
  return secret && base::equal(secret->reveal(), message);
}

TEST(Padding, TakesOffWhatTheLibraryPutOn) {
  const crypto::PublicKey key = madeKey("RSA").publicKey();
  for (const std::size_t size : {0, 1, 245}) {
    const Bytes message(size, 7);
    const Bytes block = opened(crypto::encryptPKCS1(key, message));
    EXPECT_TRUE(holds(crypto::unpadPKCS1(block), message)) << size;
  }
  for (const auto &[hash, maskHash] :
       {std::pair{sha1, sha1}, {sha256, sha256}, {sha256, sha1}, {sha512, sha224}}) {
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, 254 - 2 * digestSize(hash)}) {
      const Bytes message(size, 7);
      const Bytes block = opened(crypto::encryptOAEP(key, message, {hash, maskHash, {}}));
      EXPECT_TRUE(holds(crypto::unpadOAEP(block, hash, maskHash), message))
          << nameOf(hash) << " " << nameOf(maskHash) << " " << size;
    }
  }
}

TEST(Padding, TakesTheShortestBlocks) {
  EXPECT_TRUE(holds(crypto::unpadPKCS1(Bytes{0, 2, 1, 1, 1, 1, 1, 1, 1, 1, 0}), {}));
  const crypto::PrivateKey key = crypto::PrivateKey::generateRSA(528).value();  // 2 · 32 + 2 bytes
  const auto block =
      key.rawRSA(crypto::encryptOAEP(key.publicKey(), {}, {sha256, sha256, Bytes(3)}).value());
  EXPECT_TRUE(holds(crypto::unpadOAEP(block->reveal(), sha256, sha256, Bytes(3)), {}));
  const crypto::PSSParameters whole{sha512, sha512, 0};  // 64 + 2 bytes
  const auto padded = crypto::padPSS(Bytes(64), whole, 528);
  EXPECT_TRUE(padded &&
              verifyPSS(key.publicKey(), key.rawRSA(*padded)->reveal(), Bytes(64), whole));
  Bytes tooShort(66, 0xBC);
  tooShort[0] = 0;
  EXPECT_FALSE(crypto::hashOfPSSBlock(tooShort, 521));
}

TEST(Padding, PKCS1RefusesABlockThatIsNotPadded) {
  const std::string zero(1, '\0');
  for (const std::string &block :
       {std::string(), zero + "\2xxxxxxx" + zero, "\1\2xxxxxxxx" + zero + "m",
        zero + "\1xxxxxxxx" + zero + "m" /*of a signature*/,
        zero + "\2xxxxxxx" + zero + "mm" /*seven bytes of padding*/, zero + "\2xxxxxxxxxxxxxx"}) {
    EXPECT_FALSE(crypto::unpadPKCS1(base::viewOf(block))) << testing::PrintToString(block);
  }
}

TEST(Padding, OfASignatureIsOnesUpToAZero) {
  const auto content = [](const char *hex) {
    const Bytes block = fakes::bytesOfHex(hex);
    const auto found = crypto::contentOfPKCS1Block(block);
    return found ? found->size() : 99;
  };
  EXPECT_EQ(content("0001ffffffffffffffff00"), 0U);
  EXPECT_EQ(content("0001ffffffffffffffff000102"), 2U);
  for (const char *hex :
       {"0001ffffffffffffff000102", "0101ffffffffffffffff00", "0002ffffffffffffffff00",
        "0001fffffffffffffffeff00", "0001ffffffffffffffffff"}) {
    EXPECT_EQ(content(hex), 99U) << hex;
  }
}

TEST(Padding, OAEPRefusesAnotherHashLabelOrBlock) {
  Bytes block =
      opened(crypto::encryptOAEP(madeKey("RSA").publicKey(), Bytes(20), {sha256, sha256, {}}));
  EXPECT_FALSE(crypto::unpadOAEP(block, sha1, sha256));
  EXPECT_FALSE(crypto::unpadOAEP(block, sha256, sha1));
  EXPECT_FALSE(crypto::unpadOAEP(block, sha256, sha256, base::viewOf("label")));
  EXPECT_FALSE(crypto::unpadOAEP(ByteView(block).first(65), sha256, sha256));
  block[0] = 1;
  EXPECT_FALSE(crypto::unpadOAEP(block, sha256, sha256));
  // In the masked data block a flipped bit stays where it is and spoils the padding there.
  block[0] = 0;
  block[100] ^= 1;
  EXPECT_FALSE(crypto::unpadOAEP(block, sha256, sha256));
}

}  // namespace
