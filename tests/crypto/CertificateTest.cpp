#include "crypto/Certificate.hpp"

#include <gtest/gtest.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <regex>

#include "fakes/MadeKeys.hpp"

namespace {

using fakes::madeIdentity;
using fakes::madeKey;

using crypto::Certificate;

TEST(SelfSigned, IsAServerCertificateForExactlyItsName) {
  for (const auto &[type, usage] : {std::pair("RSA", "Digital Signature, Key Encipherment"),
                                    {"EC", "Digital Signature, Key Agreement"},
                                    {"ED25519", "Digital Signature"}}) {
    SCOPED_TRACE(type);
    const crypto::PrivateKey key = madeKey(type);
    const auto made = Certificate::selfSigned(key, "build-host", 10, /*serverName=*/true);
    ASSERT_TRUE(made);
    EXPECT_EQ(X509_verify(made->native(), key.native()), 1);
    const std::unique_ptr<BIO, decltype(&BIO_free)> printed(BIO_new(BIO_s_mem()), BIO_free);
    X509_print_ex(printed.get(), made->native(), XN_FLAG_ONELINE,
                  X509_FLAG_NO_SERIAL | X509_FLAG_NO_SIGNAME | X509_FLAG_NO_VALIDITY |
                      X509_FLAG_NO_PUBKEY | X509_FLAG_NO_SIGDUMP | X509_FLAG_NO_HEADER);
    char *text = nullptr;
    const auto length = static_cast<std::size_t>(BIO_get_mem_data(printed.get(), &text));
    const std::regex varying("  +|..(:..){19}\\n");  // indentation, the identifier
    EXPECT_EQ(std::regex_replace(std::string(text, length), varying, ""),
              "Version: 3 (0x2)\nIssuer: CN = build-host\nSubject: CN = build-host\n"
              "X509v3 extensions:\nX509v3 Basic Constraints: critical\nCA:FALSE\n"
              "X509v3 Key Usage: critical\n" +
                  std::string(usage) +
                  "\nX509v3 Subject Key Identifier: \nX509v3 Subject Alternative Name: \n"
                  "DNS:build-host\nX509v3 Extended Key Usage: \nTLS Web Server Authentication\n");
    EXPECT_EQ(made->notAfter() - made->notBefore(), std::chrono::hours(11 * 24));
    const auto age = std::chrono::system_clock::now() - made->notBefore();
    EXPECT_LE(std::chrono::abs(age - std::chrono::hours(24)), std::chrono::minutes(1));
    const Bytes serial = made->serialNumberDER();
    EXPECT_TRUE(serial.size() == 18 && (serial[2] & 0xC0) == 0x40);
  }
  Error error;
  EXPECT_FALSE(
      Certificate::selfSigned(madeKey("EC"), "h\u00f6st", 10, /*serverName=*/true, &error));
  EXPECT_EQ(error.description, "a DNS name holds ASCII characters only");
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
  EXPECT_EQ(certificate.commonName(), "Zürich, \"Ω\"");
}

TEST(Certificate, IsReadFromExactlyItsBytes) {
  const Certificate made = madeIdentity("EC", "host").certificate;
  Bytes der = made.der();
  const auto read = Certificate::fromDER(der);
  EXPECT_EQ(read->sha256(), made.sha256());
  EXPECT_FALSE(Certificate::fromDER({der.data(), der.size() - 1}));
  der.push_back(0);
  EXPECT_FALSE(Certificate::fromDER(der));
  EXPECT_FALSE(Certificate::fromDER({}));
}

TEST(Certificate, InPEMCountsUpToTheFirstDamagedBlock) {
  const std::string whole = madeIdentity("EC", "host").certificate.pem();
  const std::string half = whole.substr(0, whole.size() / 2);
  for (const auto &[text, count] :
       {std::pair("text\n" + whole + "between\n" + whole, 2),
        {whole + half, 1},
        {half + whole, 0},
        {whole + "-----BEGIN CERTIFICATE-----\n-----END CERTIFICATE-----\n" + whole, 1}}) {
    EXPECT_EQ(Certificate::allFromPEM(base::viewOf(text)).size(), count) << text;
  }
}

}  // namespace
