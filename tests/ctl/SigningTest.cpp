#include "ctl/Signing.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "fakes/MadeKeys.hpp"
#include "support/HexString.hpp"

namespace {

using fakes::madeKey;

const Bytes kInput = base::bytesOf("abc");
// FIPS 180-4, example values for "abc"
const std::string kSHA1 = "A9993E364706816ABA3E25717850C26C9CD0D89D";
const std::string kSHA256 = "BA7816BF8F01CFEA414140DE5DAE2223B00361A396177A9CB410FF61F20015AD";
// RFC 8017 9.2, note 1
const std::string kSHA1Info = "3021300906052B0E03021A05000414";
const std::string kSHA256Info = "3031300D060960864801650304020105000420";

TEST(Signing, PreparesWhatTheKindOfKeySigns) {
  struct Case {
    const char *key;
    std::string hash;
    std::string data;  // hexadecimal; empty: refused
  };
  for (const Case &row :
       {Case{"RSA", "", kSHA256Info + kSHA256}, Case{"RSA", "sha1", kSHA1Info + kSHA1},
        Case{"RSA", "none", "616263"}, Case{"RSA", "md5", ""}, Case{"EC", "", kSHA256},
        Case{"EC", "sha1", kSHA1}, Case{"ED25519", "", "616263"}, Case{"ED25519", "sha256", ""}}) {
    SCOPED_TRACE(row.key + (" " + row.hash));
    ctl::Failure failure;
    const auto data = ctl::dataToSign(madeKey(row.key).publicKey(), row.hash, kInput, failure);
    EXPECT_EQ(support::hexString(data.value_or(Bytes())), row.data);
    EXPECT_EQ(failure.what.empty(), data.has_value()) << failure.what;
  }
  ctl::Failure failure;
  const crypto::PublicKey key = madeKey("RSA").publicKey();
  EXPECT_TRUE(ctl::dataToSign(key, "none", Bytes(245), failure));
  EXPECT_FALSE(ctl::dataToSign(key, "none", Bytes(246), failure));
  EXPECT_THAT(failure.what, testing::HasSubstr("at most 245 bytes"));
}

TEST(SigningCheck, KnowsTheKeysOwnSignatures) {
  const crypto::PrivateKey rsa = madeKey("RSA");
  const crypto::PrivateKey ec = madeKey("EC");
  const crypto::PrivateKey ed = madeKey("ED25519");
  for (const auto &[key, signature] : {std::pair{rsa, rsa.signRawPKCS1(kInput).value()},
                                       {ec, ec.signDigestECDSA(kInput).value()},
                                       {ed, ed.signEd25519(kInput).value()}}) {
    EXPECT_TRUE(ctl::isSignature(key.publicKey(), signature, kInput));
    EXPECT_FALSE(ctl::isSignature(key.publicKey(), signature, base::bytesOf("abd")));
  }
}

}  // namespace
