#include "ctl/Signing.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <functional>
#include <string>

#include "crypto/PrivateKey.hpp"
#include "support/HexString.hpp"

namespace {

using crypto::PrivateKey;

const Bytes kInput = base::bytesOf("abc");
// FIPS 180-4, example values for "abc"
const std::string kSHA1 = "A9993E364706816ABA3E25717850C26C9CD0D89D";
const std::string kSHA256 = "BA7816BF8F01CFEA414140DE5DAE2223B00361A396177A9CB410FF61F20015AD";
// RFC 8017 9.2, note 1
const std::string kSHA1Info = "3021300906052B0E03021A05000414";
const std::string kSHA256Info = "3031300D060960864801650304020105000420";

const PrivateKey &rsaKey() {
  static const auto key = PrivateKey::generateRSA(2048);
  return *key;
}
const PrivateKey &ecKey() {
  static const auto key = PrivateKey::generateP256();
  return *key;
}
const PrivateKey &ed25519Key() {
  static const PrivateKey key(
      std::shared_ptr<EVP_PKEY>(EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"), EVP_PKEY_free));
  return key;
}

struct SigningCase {
  const char *name;
  const PrivateKey &(*key)();
  std::string choice;
  std::string data;  // hexadecimal; empty: refused
};

class Signing : public testing::TestWithParam<SigningCase> {};

TEST_P(Signing, PreparesWhatTheKindOfKeySigns) {
  ctl::Failure failure;
  const auto data =
      ctl::dataToSign(GetParam().key().publicKey(), GetParam().choice, kInput, failure);
  EXPECT_EQ(support::hexString(data.value_or(Bytes())), GetParam().data);
  EXPECT_EQ(failure.what.empty(), data.has_value()) << failure.what;
}

INSTANTIATE_TEST_SUITE_P(Keys, Signing,
                         testing::Values(SigningCase{"RSA", rsaKey, "", kSHA256Info + kSHA256},
                                         SigningCase{"RSAWithSHA1", rsaKey, "sha1",
                                                     kSHA1Info + kSHA1},
                                         SigningCase{"RSAWithoutHash", rsaKey, "none", "616263"},
                                         SigningCase{"EC", ecKey, "", kSHA256},
                                         SigningCase{"ECWithSHA1", ecKey, "sha1", kSHA1},
                                         SigningCase{"Ed25519", ed25519Key, "", "616263"},
                                         SigningCase{"Ed25519WithHash", ed25519Key, "sha256", ""},
                                         SigningCase{"UnknownHash", rsaKey, "md5", ""}),
                         [](const auto &row) { return std::string(row.param.name); });

TEST(SigningLimits, WhatAnRSAKeyCannotHoldIsRefused) {
  ctl::Failure failure;
  const crypto::PublicKey key = rsaKey().publicKey();
  EXPECT_TRUE(ctl::dataToSign(key, "none", Bytes(245), failure));
  EXPECT_FALSE(ctl::dataToSign(key, "none", Bytes(246), failure));
  EXPECT_THAT(failure.what, testing::HasSubstr("at most 245 bytes"));
}

TEST(SigningCheck, KnowsTheKeysOwnSignatures) {
  const Bytes other = base::bytesOf("abd");
  const std::pair<const PrivateKey &, Bytes> signatures[] = {
      {rsaKey(), rsaKey().signRawPKCS1(kInput).value()},
      {ecKey(), ecKey().signDigestECDSA(kInput).value()},
      {ed25519Key(), ed25519Key().signEd25519(kInput).value()}};
  for (const auto &[key, signature] : signatures) {
    EXPECT_TRUE(ctl::isSignature(key.publicKey(), signature, kInput));
    EXPECT_FALSE(ctl::isSignature(key.publicKey(), signature, other));
  }
}

}  // namespace
