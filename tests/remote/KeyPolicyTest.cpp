#include "remote/KeyPolicy.hpp"

#include <gtest/gtest.h>

#include "crypto/HashAlgorithm.hpp"
#include "crypto/PSS.hpp"
#include "fakes/MadeKeys.hpp"

namespace remote {
namespace {

using fakes::madeKey;

constexpr std::size_t kModulus = 256;

Bytes sha256Info() {
  return crypto::digestInfo(crypto::HashAlgorithm::sha256, Bytes(32, 7));
}

// RFC 8017 9.2: 00 01 FF … 00 and the content; `behind` it what does not belong there.
Bytes padded(const Bytes &content, std::size_t behind = 0) {
  Bytes block{0x00, 0x01};
  block.resize(kModulus - content.size() - behind - 1, 0xFF);
  block.push_back(0x00);
  block.insert(block.end(), content.begin(), content.end());
  block.resize(kModulus);
  return block;
}

Bytes pssBlock() {
  constexpr auto kHash = crypto::HashAlgorithm::sha256;
  return crypto::padPSS(Bytes(32, 7), {kHash, kHash, /*saltLength=*/32}, 8 * kModulus).value();
}

Bytes withChangedByte(Bytes block, std::size_t index) {
  block[index] = static_cast<std::uint8_t>(block[index] ^ 0x10);
  return block;
}

TEST(KeyVerdict, IsAllowedOrRefusedByWhatTheBytesMean) {
  using enum KeyOperation;
  constexpr auto *sign = judgeSigning;
  constexpr auto *decrypt = judgeDecryption;
  constexpr bool apart = false;
  constexpr bool shared = true;  // the key also authenticates
  constexpr auto kRefused = std::nullopt;
  struct Case {
    const char *name;
    const char *key;
    decltype(sign) judge;
    bool isShared;
    Bytes data;
    std::optional<KeyOperation> operation;
    std::string description = "";  // a part of it
  };
  const Case kCases[] = {
      {"DigestInfo", "RSA", sign, apart, sha256Info(), signPKCS1, "a sha256 digest"},
      {"LongestToPad", "RSA", sign, apart, Bytes(kModulus - 11, 1), signPKCS1},
      {"TooLongToPad", "RSA", sign, apart, Bytes(kModulus - 10, 1), kRefused},
      {"PSSBlock", "RSA", sign, apart, pssBlock(), rawRSA, "sha256 digest with PSS"},
      {"PSSBlockThatIsNotWhole", "RSA", sign, apart, withChangedByte(pssBlock(), 100), rawRSA,
       "a block of"},
      {"SharedDigestInfo", "RSA", sign, shared, sha256Info(), signPKCS1, "a sha256 digest"},
      {"SharedSixteenBytes", "RSA", sign, shared, Bytes(16, 1), kRefused},
      {"SharedMD5AndSHA1", "RSA", sign, shared, Bytes(36, 1), kRefused},
      {"SharedFactorOfAForgery", "RSA", sign, shared, Bytes(kModulus - 11, 1), kRefused},
      {"SharedDigestInfoOfNoKnownHash", "RSA", sign, shared, withChangedByte(sha256Info(), 5),
       kRefused},
      {"SharedShortKey", "RSA1024", sign, shared, sha256Info(), kRefused},
      {"SharedPaddedDigest", "RSA", sign, shared, padded(sha256Info()), rawRSA},
      {"SharedShortPaddingAndFreeBytesBehind", "RSA", sign, shared,
       padded(sha256Info(), kModulus - 11 - sha256Info().size()), kRefused},
      {"SharedOneFreeByteBehind", "RSA", sign, shared, padded(sha256Info(), 1), kRefused},
      {"SharedOtherByteBeforeTheDigestInfo", "RSA", sign, shared,
       withChangedByte(padded(sha256Info()), kModulus - sha256Info().size() - 1), kRefused},
      {"SharedPSSBlock", "RSA", sign, shared, pssBlock(), rawRSA},
      {"SharedPSSBlockThatIsNotWhole", "RSA", sign, shared, withChangedByte(pssBlock(), 100),
       kRefused},
      {"SharedDecryption", "RSA", decrypt, shared, Bytes(kModulus, 1), kRefused},
      {"EcDigest", "EC", sign, apart, Bytes(32, 1), signECDSA, "32 bytes"},
      {"EcNoDigest", "EC", sign, apart, Bytes(65, 1), kRefused},
      {"EcPoint", "EC", decrypt, apart, *madeKey("EC").publicKey().externalRepresentation(),
       deriveECDH},
      {"EcCompressedPoint", "EC", decrypt, apart, Bytes(33, 2), kRefused},
      {"EdMessage", "ED25519", sign, apart, Bytes(100000, 1), signEd25519}};
  for (const Case &row : kCases) {
    SCOPED_TRACE(row.name);
    const crypto::PrivateKey key = std::string(row.key) == "RSA1024"
                                       ? *crypto::PrivateKey::generateRSA(1024)
                                       : madeKey(row.key);
    const KeyVerdict use = row.judge(key.publicKey(), row.data, row.isShared);
    EXPECT_EQ(use.operation, row.operation) << use.description;
    EXPECT_NE(use.description.find(row.description), std::string::npos) << use.description;
    EXPECT_TRUE(!use.operation || perform(*use.operation, key, row.data));
  }
}

}  // namespace
}  // namespace remote
