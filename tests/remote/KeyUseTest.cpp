#include "remote/KeyUse.hpp"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>

#include <string>

#include "crypto/HashAlgorithm.hpp"
#include "crypto/Owned.hpp"
#include "support/HexString.hpp"

namespace remote {
namespace {

using Context = crypto::Owned<EVP_PKEY_CTX, EVP_PKEY_CTX_free>;

constexpr std::size_t kModulus = 256;

const crypto::PrivateKey &rsaKey() {
  static const crypto::PrivateKey key = crypto::PrivateKey::generateRSA(2048).value();
  return key;
}

const crypto::PrivateKey &ecKey() {
  static const crypto::PrivateKey key = crypto::PrivateKey::generateP256().value();
  return key;
}

// The example key of RFC 8410, section 10.3.
const crypto::PrivateKey &edKey() {
  static const crypto::PrivateKey key =
      crypto::PrivateKey::fromPKCS8(
          support::dataWithHexString(
              "302E020100300506032B657004220420"
              "D4EE72DBF913584AD5B6D8F1F769F8AD3AFE7C28CBF1D4FBE097A88F44755842")
              .value())
          .value();
  return key;
}

Bytes sha256Info() {
  return crypto::digestInfo(crypto::HashAlgorithm::sha256, Bytes(32, 7));
}

// RFC 8017 9.2: 00 01 FF … 00 and the content.
Bytes padded(const Bytes &content) {
  Bytes block(kModulus, 0xFF);
  block[0] = 0x00;
  block[1] = 0x01;
  block[kModulus - content.size() - 1] = 0x00;
  std::ranges::copy(content, block.end() - static_cast<std::ptrdiff_t>(content.size()));
  return block;
}

// The block that the library signs with PSS padding, found again by the public operation.
Bytes pssBlock() {
  Bytes signature(kModulus);
  Bytes block(kModulus);
  std::size_t length = kModulus;
  const Bytes digest(32, 7);
  const Context sign(EVP_PKEY_CTX_new(rsaKey().native(), nullptr));
  EXPECT_EQ(EVP_PKEY_sign_init(sign.get()), 1);
  EXPECT_EQ(EVP_PKEY_CTX_set_rsa_padding(sign.get(), RSA_PKCS1_PSS_PADDING), 1);
  EXPECT_EQ(EVP_PKEY_CTX_set_signature_md(sign.get(), EVP_sha256()), 1);
  EXPECT_EQ(EVP_PKEY_CTX_set_rsa_pss_saltlen(sign.get(), RSA_PSS_SALTLEN_DIGEST), 1);
  EXPECT_EQ(EVP_PKEY_sign(sign.get(), signature.data(), &length, digest.data(), digest.size()), 1);
  const Context open(EVP_PKEY_CTX_new(rsaKey().native(), nullptr));
  EXPECT_EQ(EVP_PKEY_encrypt_init(open.get()), 1);
  EXPECT_EQ(EVP_PKEY_CTX_set_rsa_padding(open.get(), RSA_NO_PADDING), 1);
  EXPECT_EQ(EVP_PKEY_encrypt(open.get(), block.data(), &length, signature.data(), kModulus), 1);
  return block;
}

Bytes withChangedByte(Bytes block, std::size_t index) {
  block[index] = static_cast<std::uint8_t>(block[index] ^ 0x10);
  return block;
}

Bytes point() {
  return ecKey().publicKey().externalRepresentation().value();
}

constexpr auto kRefused = std::nullopt;
enum class Asked { sign, decrypt };
enum class Holder { apart, shared };  // shared: the key also authenticates

struct KeyUseCase {
  std::string name;
  const crypto::PrivateKey &(*key)();
  Asked asked;
  Holder holder;
  Bytes data;
  std::optional<KeyOperation> operation;
  std::string description = "";  // a part of it
};

void PrintTo(const KeyUseCase &row, std::ostream *stream) {
  *stream << row.name;
}

class KeyUses : public testing::TestWithParam<KeyUseCase> {};

TEST_P(KeyUses, AreAllowedOrRefused) {
  const KeyUseCase &row = GetParam();
  const auto judge = row.asked == Asked::sign ? useForSigning : useForDecryption;
  const KeyUse use = judge(row.key().publicKey(), row.data, row.holder == Holder::shared);
  EXPECT_EQ(use.operation, row.operation) << use.description;
  EXPECT_NE(use.description.find(row.description), std::string::npos) << use.description;
  Error error;
  if (use.operation) {
    EXPECT_TRUE(perform(*use.operation, row.key(), row.data, &error)) << error.description;
  }
}

using enum KeyOperation;
using enum Asked;
using enum Holder;

INSTANTIATE_TEST_SUITE_P(
    Requests, KeyUses,
    testing::Values(
        KeyUseCase{"DigestInfo", rsaKey, sign, apart, sha256Info(), signPKCS1, "a sha256 digest"},
        KeyUseCase{"Md5AndSha1", rsaKey, sign, apart, Bytes(36, 1), signPKCS1, "36 bytes of data"},
        KeyUseCase{"SixteenBytes", rsaKey, sign, apart, Bytes(16, 1), signPKCS1},
        KeyUseCase{"LongestToPad", rsaKey, sign, apart, Bytes(kModulus - 11, 1), signPKCS1},
        KeyUseCase{"TooLongToPad", rsaKey, sign, apart, Bytes(kModulus - 10, 1), kRefused},
        KeyUseCase{"OneShortOfABlock", rsaKey, sign, apart, Bytes(kModulus - 1, 1), kRefused},
        KeyUseCase{"UnknownBlock", rsaKey, sign, apart, Bytes(kModulus, 1), rawRSA, "a block of"},
        KeyUseCase{"PaddedBlock", rsaKey, sign, apart, padded(sha256Info()), rawRSA, "sha256"},
        KeyUseCase{"PSSBlock", rsaKey, sign, apart, pssBlock(), rawRSA, "sha256 digest with PSS"},
        KeyUseCase{"PSSBlockThatIsNotWhole", rsaKey, sign, apart, withChangedByte(pssBlock(), 100),
                   rawRSA, "a block of"},
        KeyUseCase{"LongerThanABlock", rsaKey, sign, apart, Bytes(kModulus + 1, 1), kRefused},
        KeyUseCase{"SharedDigestInfo", rsaKey, sign, shared, sha256Info(), signPKCS1},
        KeyUseCase{"SharedFifteenBytes", rsaKey, sign, shared, Bytes(15, 1), signPKCS1},
        KeyUseCase{"SharedSixteenBytes", rsaKey, sign, shared, Bytes(16, 1), kRefused},
        KeyUseCase{"SharedSeventeenBytes", rsaKey, sign, shared, Bytes(17, 1), signPKCS1},
        KeyUseCase{"SharedPaddedDigest", rsaKey, sign, shared, padded(sha256Info()), rawRSA},
        KeyUseCase{"SharedPaddedSixteenBytes", rsaKey, sign, shared, padded(Bytes(16, 1)),
                   kRefused},
        KeyUseCase{"SharedPSSBlock", rsaKey, sign, shared, pssBlock(), rawRSA},
        KeyUseCase{"SharedPSSBlockThatIsNotWhole", rsaKey, sign, shared,
                   withChangedByte(pssBlock(), 100), kRefused},
        KeyUseCase{"SharedDecryption", rsaKey, decrypt, shared, Bytes(kModulus, 1), kRefused},
        KeyUseCase{"Block", rsaKey, decrypt, apart, Bytes(kModulus, 1), rawRSA},
        KeyUseCase{"ShortBlock", rsaKey, decrypt, apart, Bytes(kModulus - 1, 1), kRefused},
        KeyUseCase{"EcDigest", ecKey, sign, apart, Bytes(32, 1), signECDSA, "32 bytes"},
        KeyUseCase{"EcLongestDigest", ecKey, sign, apart, Bytes(64, 1), signECDSA},
        KeyUseCase{"EcNoDigest", ecKey, sign, apart, Bytes(65, 1), kRefused},
        KeyUseCase{"EcEmptyDigest", ecKey, sign, apart, Bytes(), kRefused},
        KeyUseCase{"EcPoint", ecKey, decrypt, apart, point(), deriveECDH},
        KeyUseCase{"EcCompressedPoint", ecKey, decrypt, apart, Bytes(33, 2), kRefused},
        KeyUseCase{"EcPointOfAnotherForm", ecKey, decrypt, apart, Bytes(65, 2), kRefused},
        KeyUseCase{"EdMessage", edKey, sign, apart, Bytes(100000, 1), signEd25519},
        KeyUseCase{"EdDecryption", edKey, decrypt, apart, Bytes(32, 1), kRefused}),
    [](const auto &row) { return row.param.name; });

TEST(KeyUse, PadsAsAProgramWouldPad) {
  const auto signature = perform(signPKCS1, rsaKey(), sha256Info());
  const auto raw = perform(rawRSA, rsaKey(), padded(sha256Info()));
  ASSERT_TRUE(signature && raw);
  EXPECT_EQ(support::hexString(signature->reveal()), support::hexString(raw->reveal()));
}

}  // namespace
}  // namespace remote
