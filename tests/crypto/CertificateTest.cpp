#include "crypto/Certificate.hpp"

#include <gtest/gtest.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include "fakes/MadeKeys.hpp"

namespace {

using fakes::madeIdentity;
using fakes::madeKey;

using crypto::Certificate;

TEST(SelfSigned, IsAValidServerCertificate) {
  for (const char *type : {"RSA", "EC", "ED25519"}) {
    SCOPED_TRACE(type);
    const crypto::PrivateKey key = madeKey(type);
    const auto made = Certificate::selfSigned(key, "build-host", 10, /*serverName=*/true);
    ASSERT_TRUE(made);
    X509 *native = made->native();
    EXPECT_EQ(X509_verify(native, key.native()), 1);
    EXPECT_EQ(X509_check_purpose(native, X509_PURPOSE_SSL_SERVER, /*ca=*/0), 1);
    EXPECT_EQ(
        X509_check_host(native, "build-host", 0, X509_CHECK_FLAG_NEVER_CHECK_SUBJECT, nullptr), 1);
    EXPECT_EQ(X509_check_ca(native), 0);
    EXPECT_EQ(made->commonName(), "build-host");
    EXPECT_EQ(made->notAfter() - made->notBefore(), std::chrono::hours(11 * 24));
  }
}

TEST(Certificate, SubjectContainsWhatStandsInAValue) {
  const Certificate certificate =
      Certificate::selfSigned(madeKey("EC"), "Zürich, \"Ω\"", 1, /*serverName=*/false).value();
  for (const char *text : {"", "ZÜRICH, ", "\"ω"}) {
    EXPECT_TRUE(certificate.subjectContains(text)) << text;
  }
  for (const char *text : {"CN", "=", "\\", "bern"}) {
    EXPECT_FALSE(certificate.subjectContains(text)) << text;
  }
}

TEST(Certificate, IsReadFromExactlyItsBytes) {
  const Certificate made = madeIdentity("EC", "host").certificate;
  Bytes der = made.der();
  const auto read = Certificate::fromDER(der);
  EXPECT_EQ(read->sha256(), made.sha256());
  EXPECT_EQ(read->publicKey()->externalRepresentation(),
            madeKey("EC").publicKey().externalRepresentation());
  EXPECT_FALSE(Certificate::fromDER({der.data(), der.size() - 1}));
  der.push_back(0);
  EXPECT_FALSE(Certificate::fromDER(der));
  EXPECT_FALSE(Certificate::fromDER({}));
}

}  // namespace
