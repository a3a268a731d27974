#include <gtest/gtest.h>
#include <openssl/err.h>

#include <functional>

#include "crypto/KeyParts.hpp"
#include "crypto/RSAEncryption.hpp"
#include "crypto/Signature.hpp"
#include "fakes/MadeKeys.hpp"

namespace {

// Another library in the process would take an entry that stays for its own.
TEST(ErrorQueue, HoldsNothingAfterWhatFailed) {
  const crypto::PrivateKey rsa = fakes::madeKey("RSA");
  const crypto::PrivateKey ec = fakes::madeKey("EC");
  const crypto::PrivateKey edwards = fakes::madeKey("ED25519");
  const crypto::PublicKey rsaPublic = rsa.publicKey();
  const crypto::PublicKey ecPublic = ec.publicKey();
  const Bytes wrong(256, 0xFF);
  const std::string damaged = "-----BEGIN CERTIFICATE-----\nMAAA\n-----END CERTIFICATE-----\n";
  const std::pair<const char *, std::function<bool()>> kCases[] = {
      {"DER", [&] { return crypto::Certificate::fromDER(wrong).has_value(); }},
      {"PEM", [&] { return !crypto::Certificate::allFromPEM(base::viewOf(damaged)).empty(); }},
      {"key in DER", [&] { return crypto::PrivateKey::fromPKCS8(wrong).has_value(); }},
      {"key in PEM", [&] { return crypto::PrivateKey::fromPEM(wrong, nullptr).has_value(); }},
      {"file", [&] { return crypto::readIdentity(wrong, nullptr).has_value(); }},
      {"PKCS #1", [&] { return rsa.signRawPKCS1(wrong).has_value(); }},
      {"RSA", [&] { return rsa.rawRSA(wrong).has_value(); }},
      {"ECDH", [&] { return ec.deriveECDH(wrong).has_value(); }},
      {"encryption", [&] { return crypto::encryptPKCS1(rsaPublic, wrong).has_value(); }},
      {"verifying PKCS #1", [&] { return rsaPublic.verifyRawPKCS1(wrong, wrong); }},
      {"verifying ECDSA", [&] { return crypto::verifyDigestECDSA(ecPublic, wrong, wrong); }},
      {"verifying Ed25519",
       [&] { return crypto::verifyEd25519(edwards.publicKey(), Bytes(64, 1), wrong); }},
      {"point", [&] { return crypto::isPointFor(ecPublic, Bytes(65, 4)); }},
      {"signature", [&] { return crypto::joinedSignature(wrong, 32).has_value(); }},
  };
  for (const auto &[name, succeeds] : kCases) {
    EXPECT_FALSE(succeeds()) << name;
    EXPECT_EQ(ERR_peek_error(), 0U) << name;
  }
}

}  // namespace
