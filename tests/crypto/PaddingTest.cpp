#include "crypto/Padding.hpp"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>

#include "crypto/Owned.hpp"
#include "fakes/MadeKeys.hpp"

namespace {

using fakes::madeKey;

using crypto::HashAlgorithm;
using enum crypto::HashAlgorithm;

// What the library's own encryption makes of a message, after the private operation.
Bytes openedBlock(const Bytes &message, int padding, HashAlgorithm hash, HashAlgorithm maskHash) {
  const crypto::PrivateKey key = madeKey("RSA");
  const crypto::Owned<EVP_PKEY_CTX, EVP_PKEY_CTX_free> context(
      EVP_PKEY_CTX_new(key.native(), nullptr));
  EXPECT_EQ(EVP_PKEY_encrypt_init(context.get()), 1);
  EXPECT_EQ(EVP_PKEY_CTX_set_rsa_padding(context.get(), padding), 1);
  if (padding == RSA_PKCS1_OAEP_PADDING) {
    EVP_PKEY_CTX_set_rsa_oaep_md_name(context.get(), nameOf(hash), nullptr);
    EVP_PKEY_CTX_set_rsa_mgf1_md_name(context.get(), nameOf(maskHash), nullptr);
  }
  Bytes block(256);
  std::size_t length = block.size();
  EXPECT_EQ(EVP_PKEY_encrypt(context.get(), block.data(), &length, message.data(), message.size()),
            1);
  const SecretBytes opened = key.rawRSA(block).value();
  return {opened.reveal().begin(), opened.reveal().end()};
}

bool holds(const std::optional<SecretBytes> &secret, const Bytes &message) {
  return secret && base::equal(secret->reveal(), message);
}

TEST(Padding, TakesOffWhatTheLibraryPutOn) {
  for (const std::size_t size : {0, 1, 32, 245}) {
    const Bytes message(size, 7);
    EXPECT_TRUE(
        holds(crypto::unpadPKCS1(openedBlock(message, RSA_PKCS1_PADDING, sha1, sha1)), message))
        << size;
  }
  for (const auto &[hash, maskHash] :
       {std::pair{sha1, sha1}, {sha256, sha256}, {sha256, sha1}, {sha512, sha224}}) {
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, 254 - 2 * digestSize(hash)}) {
      const Bytes message(size, 7);
      const Bytes block = openedBlock(message, RSA_PKCS1_OAEP_PADDING, hash, maskHash);
      EXPECT_TRUE(holds(crypto::unpadOAEP(block, hash, maskHash), message))
          << nameOf(hash) << " " << nameOf(maskHash) << " " << size;
    }
  }
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

TEST(Padding, OAEPRefusesAnotherHashLabelOrBlock) {
  Bytes block = openedBlock(Bytes(20), RSA_PKCS1_OAEP_PADDING, sha256, sha256);
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
