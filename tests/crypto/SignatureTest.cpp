#include "crypto/Signature.hpp"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include "crypto/HashAlgorithm.hpp"
#include "crypto/Owned.hpp"
#include "fakes/MadeKeys.hpp"

namespace {

using fakes::madeKey;

using crypto::HashAlgorithm;

const Bytes kMessage = base::bytesOf("message");

// The library makes the digest and the DigestInfo itself.
bool libraryAccepts(const crypto::PrivateKey &key, HashAlgorithm hash, ByteView signature) {
  const crypto::Owned<EVP_MD_CTX, EVP_MD_CTX_free> context(EVP_MD_CTX_new());
  return EVP_DigestVerifyInit_ex(context.get(), nullptr, nameOf(hash), nullptr, nullptr,
                                 key.native(), nullptr) == 1 &&
         EVP_DigestVerify(context.get(), signature.data(), signature.size(), kMessage.data(),
                          kMessage.size()) == 1;
}

TEST(Signature, OfEveryHashIsWhatOthersVerify) {
  for (const char *name : {"sha1", "sha224", "sha256", "sha384", "sha512"}) {
    const HashAlgorithm hash = crypto::hashAlgorithmNamed(name).value();
    const Bytes digest = crypto::digestOf(hash, kMessage);
    const auto raw = madeKey("RSA").signRawPKCS1(crypto::digestInfo(hash, digest));
    EXPECT_TRUE(libraryAccepts(madeKey("RSA"), hash, raw.value())) << name;
    const auto curve = madeKey("EC").signDigestECDSA(digest);
    EXPECT_TRUE(libraryAccepts(madeKey("EC"), hash, curve.value())) << name;
  }
  EXPECT_FALSE(crypto::hashAlgorithmNamed("SHA256"));
}

TEST(Signature, OfAnotherMessageOrKeyIsRefused) {
  const Bytes digest = crypto::digestOf(HashAlgorithm::sha256, kMessage);
  const crypto::PublicKey key = madeKey("EC").publicKey();
  const Bytes signature = madeKey("EC").signDigestECDSA(digest).value();
  EXPECT_TRUE(crypto::verifyDigestECDSA(key, signature, digest));
  EXPECT_FALSE(crypto::verifyDigestECDSA(key, signature, Bytes(32)));
  EXPECT_FALSE(crypto::verifyDigestECDSA(crypto::PrivateKey::generateP256()->publicKey(), signature,
                                         digest));
  EXPECT_FALSE(crypto::verifyDigestECDSA(key, {}, digest));

  const crypto::PrivateKey edKey = madeKey("ED25519");
  const Bytes edSignature = edKey.signEd25519(kMessage).value();
  EXPECT_TRUE(crypto::verifyEd25519(edKey.publicKey(), edSignature, kMessage));
  EXPECT_FALSE(crypto::verifyEd25519(edKey.publicKey(), edSignature, digest));
  EXPECT_FALSE(crypto::verifyEd25519(key, edSignature, kMessage));
}

}  // namespace
