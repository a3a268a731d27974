#include "crypto/Padding.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>

#include <string>

#include "crypto/Owned.hpp"
#include "crypto/PrivateKey.hpp"

namespace {

using crypto::HashAlgorithm;

const crypto::PrivateKey &testKey() {
  static const auto key = crypto::PrivateKey::generateRSA(2048);
  return *key;
}

// What the library's own encryption makes of a message, after the private operation.
SecretBytes openedBlock(const Bytes &message, int padding, HashAlgorithm hash,
                        HashAlgorithm maskHash) {
  const crypto::Owned<EVP_PKEY_CTX, EVP_PKEY_CTX_free> context(
      EVP_PKEY_CTX_new(testKey().native(), nullptr));
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
  return testKey().rawRSA(block).value();
}

Bytes messageOf(std::size_t size) {
  Bytes message(size);
  for (std::size_t index = 0; index < size; ++index) {
    message[index] = static_cast<std::uint8_t>(index * 7);
  }
  return message;
}

std::optional<Bytes> revealed(const std::optional<SecretBytes> &secret) {
  return secret ? std::optional(Bytes(secret->reveal().begin(), secret->reveal().end()))
                : std::nullopt;
}

TEST(Padding, TakesOffWhatTheLibraryPutOn) {
  for (const std::size_t size : {0, 1, 32, 245}) {
    const auto block =
        openedBlock(messageOf(size), RSA_PKCS1_PADDING, HashAlgorithm::sha1, HashAlgorithm::sha1);
    EXPECT_EQ(revealed(crypto::unpadPKCS1(block.reveal())), messageOf(size)) << size;
  }
  const std::pair<HashAlgorithm, HashAlgorithm> hashes[] = {
      {HashAlgorithm::sha1, HashAlgorithm::sha1},
      {HashAlgorithm::sha256, HashAlgorithm::sha256},
      {HashAlgorithm::sha256, HashAlgorithm::sha1},
      {HashAlgorithm::sha512, HashAlgorithm::sha224}};
  for (const auto &[hash, maskHash] : hashes) {
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, 254 - 2 * digestSize(hash)}) {
      const auto block = openedBlock(messageOf(size), RSA_PKCS1_OAEP_PADDING, hash, maskHash);
      EXPECT_EQ(revealed(crypto::unpadOAEP(block.reveal(), hash, maskHash)), messageOf(size))
          << nameOf(hash) << " " << nameOf(maskHash) << " " << size;
    }
  }
}

struct WrongBlock {
  const char *name;
  std::string block;
};

class PKCS1Refuses : public testing::TestWithParam<WrongBlock> {};

TEST_P(PKCS1Refuses, ABlockThatIsNotPadded) {
  EXPECT_FALSE(crypto::unpadPKCS1(base::viewOf(GetParam().block)));
}

const std::string kZero(1, '\0');

INSTANTIATE_TEST_SUITE_P(
    Blocks, PKCS1Refuses,
    testing::Values(WrongBlock{"Empty", ""}, WrongBlock{"TooShort", kZero + "\2xxxxxxx" + kZero},
                    WrongBlock{"FirstByte", "\1\2xxxxxxxx" + kZero + "m"},
                    WrongBlock{"SignatureType", kZero + "\1xxxxxxxx" + kZero + "m"},
                    WrongBlock{"SevenBytesOfPadding", kZero + "\2xxxxxxx" + kZero + "mm"},
                    WrongBlock{"NoEnd", kZero + "\2xxxxxxxxxxxxxx"}),
    [](const auto &row) { return std::string(row.param.name); });

TEST(Padding, OAEPRefusesAnotherHashLabelOrBlock) {
  const auto hash = HashAlgorithm::sha256;
  const SecretBytes block = openedBlock(messageOf(20), RSA_PKCS1_OAEP_PADDING, hash, hash);
  EXPECT_FALSE(crypto::unpadOAEP(block.reveal(), HashAlgorithm::sha1, hash));
  EXPECT_FALSE(crypto::unpadOAEP(block.reveal(), hash, HashAlgorithm::sha1));
  EXPECT_FALSE(crypto::unpadOAEP(block.reveal(), hash, hash, base::viewOf("label")));
  EXPECT_FALSE(crypto::unpadOAEP(block.reveal().first(65), hash, hash));
  Bytes changed(block.reveal().begin(), block.reveal().end());
  changed[0] = 1;
  EXPECT_FALSE(crypto::unpadOAEP(changed, hash, hash));
  // In the masked data block a flipped bit stays where it is and spoils the padding there.
  changed[0] = 0;
  changed[100] ^= 1;
  EXPECT_FALSE(crypto::unpadOAEP(changed, hash, hash));
}

}  // namespace
