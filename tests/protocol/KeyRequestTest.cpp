#include "protocol/KeyRequest.hpp"

#include <gtest/gtest.h>

#include "fakes/MadeKeys.hpp"

namespace {

using protocol::KeyOperation;

std::optional<KeyOperation> signs(const char *type, std::size_t size) {
  return protocol::operationToSign(fakes::madeKey(type).publicKey(), Bytes(size, 1));
}

std::optional<KeyOperation> decrypts(const char *type, std::size_t size, std::uint8_t first) {
  Bytes data(size);
  if (!data.empty()) {
    data.front() = first;
  }
  return protocol::operationToDecrypt(fakes::madeKey(type).publicKey(), data);
}

TEST(KeyRequest, MeansWhatItsLengthAndItsKeySay) {
  EXPECT_EQ(signs("RSA", 0), KeyOperation::signPKCS1);
  EXPECT_EQ(signs("RSA", 245), KeyOperation::signPKCS1);
  EXPECT_EQ(signs("RSA", 246), std::nullopt);
  EXPECT_EQ(signs("RSA", 256), KeyOperation::rawRSA);
  EXPECT_EQ(signs("EC", 0), std::nullopt);
  EXPECT_EQ(signs("EC", 64), KeyOperation::signECDSA);
  EXPECT_EQ(signs("EC", 65), std::nullopt);
  EXPECT_EQ(signs("ED25519", 0), KeyOperation::signEd25519);
  EXPECT_EQ(signs("X25519", 32), std::nullopt);
  EXPECT_EQ(decrypts("RSA", 256, 0), KeyOperation::rawRSA);
  EXPECT_EQ(decrypts("RSA", 255, 0), std::nullopt);
  EXPECT_EQ(decrypts("EC", 65, 4), KeyOperation::deriveECDH);
  EXPECT_EQ(decrypts("EC", 65, 3), std::nullopt);
  EXPECT_EQ(decrypts("EC", 0, 4), std::nullopt);
  EXPECT_EQ(decrypts("ED25519", 32, 4), std::nullopt);
}

TEST(KeyRequest, IsAnsweredByASignatureOfItsOwnData) {
  const crypto::PrivateKey key = fakes::madeKey("RSA");
  const Bytes data(245, 7);
  const Bytes answer = key.signRawPKCS1(data).value();
  EXPECT_TRUE(protocol::isSignature(key.publicKey(), data, answer));
  EXPECT_FALSE(protocol::isSignature(key.publicKey(), Bytes(245), answer));
  EXPECT_FALSE(protocol::isSignature(key.publicKey(), Bytes(246), answer));
}

}  // namespace
