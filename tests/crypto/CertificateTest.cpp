#include "crypto/Certificate.hpp"

#include <gtest/gtest.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include "crypto/MadeIdentities.hpp"

namespace {

class SelfSigned : public testing::TestWithParam<const char *> {};

TEST_P(SelfSigned, IsAValidServerCertificate) {
  const crypto::PrivateKey key = madeKey(GetParam());
  const auto certificate =
      crypto::Certificate::selfSigned(key, "build-host", 10, /*serverName=*/true);
  ASSERT_TRUE(certificate);
  X509 *native = certificate->native();
  EXPECT_EQ(X509_verify(native, key.native()), 1);
  EXPECT_EQ(X509_check_purpose(native, X509_PURPOSE_SSL_SERVER, /*ca=*/0), 1);
  EXPECT_EQ(X509_check_host(native, "build-host", 0, X509_CHECK_FLAG_NEVER_CHECK_SUBJECT, nullptr),
            1);
  EXPECT_EQ(X509_check_ca(native), 0);
  EXPECT_EQ(certificate->commonName(), "build-host");
  EXPECT_EQ(certificate->notAfter() - certificate->notBefore(), std::chrono::hours(11 * 24));
}

INSTANTIATE_TEST_SUITE_P(Types, SelfSigned, testing::Values("RSA", "EC", "ED25519"),
                         [](const auto &row) { return std::string(row.param); });

TEST(Certificate, KeepsACommaWithinTheServerName) {
  const auto certificate = crypto::Certificate::selfSigned(madeKey("EC"), "a,DNS:evil.example", 10,
                                                           /*serverName=*/true);
  EXPECT_EQ(X509_check_host(certificate->native(), "evil.example", 0, 0, nullptr), 0);
  EXPECT_FALSE(
      crypto::Certificate::selfSigned(madeKey("EC"), "büro", 10, /*serverName=*/true).has_value());
}

TEST(Certificate, GivesNamesAsUTF8) {
  const auto certificate =
      crypto::Certificate::selfSigned(madeKey("EC"), "Büro", 10, /*serverName=*/false);
  EXPECT_EQ(certificate->commonName(), "Büro");
  EXPECT_EQ(certificate->subject(), "CN = Büro");
}

TEST(Certificate, IsReadFromExactlyItsBytes) {
  const crypto::Certificate made = madeIdentity("EC", "host").certificate;
  Bytes der = made.der();
  EXPECT_EQ(crypto::Certificate::fromDER(der)->sha256(), made.sha256());
  const auto keyFromDER = crypto::Certificate::fromDER(der)->publicKey();
  EXPECT_EQ(keyFromDER->externalRepresentation(), made.publicKey()->externalRepresentation());

  EXPECT_FALSE(crypto::Certificate::fromDER({der.data(), der.size() - 1}));
  der.push_back(0);
  EXPECT_FALSE(crypto::Certificate::fromDER(der));
  EXPECT_FALSE(crypto::Certificate::fromDER({}));
}

TEST(Certificate, ReadsAllOfAPEMTextInOrder) {
  const crypto::Identity first = madeIdentity("EC", "first");
  const crypto::Identity second = madeIdentity("RSA", "second");
  const std::string text = first.certificate.pem() +
                           std::string(base::textOf(first.key.pem().reveal())) + "prose\n" +
                           second.certificate.pem();
  const auto certificates = crypto::Certificate::allFromPEM(base::viewOf(text));
  ASSERT_EQ(certificates.size(), 2u);
  EXPECT_EQ(certificates[0].commonName(), "first");
  EXPECT_EQ(certificates[1].commonName(), "second");
  EXPECT_TRUE(crypto::Certificate::allFromPEM(base::viewOf("prose")).empty());
}

TEST(Certificate, HoldsADateThatTheClockCannotHold) {
  const auto certificate = crypto::Certificate::selfSigned(madeKey("EC"), "host", 7000 * 365,
                                                           /*serverName=*/false);
  ASSERT_TRUE(certificate);
  EXPECT_GT(certificate->notAfter(), std::chrono::system_clock::now() + std::chrono::years(100));
}

}  // namespace
