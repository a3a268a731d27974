#include "crypto/Signature.hpp"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <memory>

#include "crypto/HashAlgorithm.hpp"
#include "crypto/Owned.hpp"
#include "crypto/PrivateKey.hpp"

namespace {

using crypto::HashAlgorithm;

const Bytes kMessage = base::bytesOf("message");

// The library makes the DigestInfo itself.
bool libraryAccepts(const crypto::PublicKey &key, HashAlgorithm hash, ByteView signature) {
  const crypto::Owned<EVP_MD_CTX, EVP_MD_CTX_free> context(EVP_MD_CTX_new());
  return EVP_DigestVerifyInit_ex(context.get(), nullptr, nameOf(hash), nullptr, nullptr,
                                 key.native(), nullptr) == 1 &&
         EVP_DigestVerify(context.get(), signature.data(), signature.size(), kMessage.data(),
                          kMessage.size()) == 1;
}

TEST(HashAlgorithm, DigestInfoIsWhatOthersVerify) {
  const auto key = crypto::PrivateKey::generateRSA(2048);
  for (const char *name : {"sha1", "sha224", "sha256", "sha384", "sha512"}) {
    const HashAlgorithm hash = crypto::hashAlgorithmNamed(name).value();
    const auto signature =
        key->signRawPKCS1(crypto::digestInfo(hash, crypto::digestOf(hash, kMessage)));
    EXPECT_TRUE(libraryAccepts(key->publicKey(), hash, signature.value())) << name;
  }
  EXPECT_FALSE(crypto::hashAlgorithmNamed("SHA256"));
}

TEST(Signature, OfAnotherMessageOrKeyIsRefused) {
  const auto hash = HashAlgorithm::sha256;
  const Bytes digest = crypto::digestOf(hash, kMessage);
  const auto key = crypto::PrivateKey::generateP256();
  const auto other = crypto::PrivateKey::generateP256();
  const Bytes signature = key->signDigestECDSA(digest).value();
  EXPECT_TRUE(crypto::verifyDigestECDSA(key->publicKey(), signature, digest));
  EXPECT_FALSE(crypto::verifyDigestECDSA(key->publicKey(), signature, crypto::digestOf(hash, {})));
  EXPECT_FALSE(crypto::verifyDigestECDSA(other->publicKey(), signature, digest));
  EXPECT_FALSE(crypto::verifyDigestECDSA(key->publicKey(), {}, digest));

  const crypto::PrivateKey edKey(
      std::shared_ptr<EVP_PKEY>(EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"), EVP_PKEY_free));
  const Bytes edSignature = edKey.signEd25519(kMessage).value();
  EXPECT_TRUE(crypto::verifyEd25519(edKey.publicKey(), edSignature, kMessage));
  EXPECT_FALSE(crypto::verifyEd25519(edKey.publicKey(), edSignature, digest));
  EXPECT_FALSE(crypto::verifyEd25519(key->publicKey(), edSignature, kMessage));
}

}  // namespace
