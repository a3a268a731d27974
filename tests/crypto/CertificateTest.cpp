#include "crypto/Certificate.hpp"

#include <gtest/gtest.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <memory>

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
    const std::string from = "            ";
    std::string keyID(std::string_view(text, length));
    keyID = keyID.substr(keyID.find("Identifier: \n") + 13, 12 + 4 + 60);
    EXPECT_EQ(std::string(text, length),
              "        Version: 3 (0x2)\n        Issuer: CN = build-host\n"
              "        Subject: CN = build-host\n        X509v3 extensions:\n" +
                  from + "X509v3 Basic Constraints: critical\n" + from + "    CA:FALSE\n" + from +
                  "X509v3 Key Usage: critical\n" + from + "    " + usage + "\n" + from +
                  "X509v3 Subject Key Identifier: \n" + keyID + from +
                  "X509v3 Subject Alternative Name: \n" + from + "    DNS:build-host\n" + from +
                  "X509v3 Extended Key Usage: \n" + from + "    TLS Web Server Authentication\n");
    EXPECT_EQ(made->notAfter() - made->notBefore(), std::chrono::hours(11 * 24));
    const auto age = std::chrono::system_clock::now() - made->notBefore();
    EXPECT_LE(std::chrono::abs(age - std::chrono::hours(24)), std::chrono::minutes(1));
    const Bytes serial = made->serialNumberDER();
    EXPECT_TRUE(serial.size() == 18 && (serial[2] & 0xC0) == 0x40);
    EXPECT_EQ(made->subjectDER(), made->issuerDER());
    EXPECT_EQ(made->subject(), "CN = build-host");
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
  const auto all = Certificate::allFromPEM(
      base::viewOf(certificate.pem() + madeIdentity("EC", "host").certificate.pem()));
  ASSERT_EQ(all.size(), 2U);
  EXPECT_EQ(all[1].commonName(), "host");
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
