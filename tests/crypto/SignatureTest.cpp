#include "crypto/Signature.hpp"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>

#include "crypto/HashAlgorithm.hpp"
#include "crypto/KeyParts.hpp"
#include "crypto/Owned.hpp"
#include "crypto/PSS.hpp"
#include "crypto/RunningDigest.hpp"
#include "fakes/MadeKeys.hpp"

namespace {

using fakes::madeKey;

using crypto::HashAlgorithm;

const Bytes kMessage = base::bytesOf("message");

// The library makes the digest and the padding itself: PSS with a salt if one is named.
bool libraryAccepts(const crypto::PrivateKey &key, HashAlgorithm hash, ByteView signature,
                    int saltLength = -1) {
  const crypto::Owned<EVP_MD_CTX, EVP_MD_CTX_free> context(EVP_MD_CTX_new());
  EVP_PKEY_CTX *padding = nullptr;
  return EVP_DigestVerifyInit_ex(context.get(), &padding, nameOf(hash), nullptr, nullptr,
                                 key.native(), nullptr) == 1 &&
         (saltLength < 0 || (EVP_PKEY_CTX_set_rsa_padding(padding, RSA_PKCS1_PSS_PADDING) == 1 &&
                             EVP_PKEY_CTX_set_rsa_pss_saltlen(padding, saltLength) == 1)) &&
         EVP_DigestVerify(context.get(), signature.data(), signature.size(), kMessage.data(),
                          kMessage.size()) == 1;
}

TEST(Signature, OfEveryHashIsWhatOthersVerify) {
  for (const char *name : {"sha1", "sha224", "sha256", "sha384", "sha512"}) {
    const HashAlgorithm hash = crypto::hashAlgorithmNamed(name).value();
    crypto::RunningDigest running(hash);
    running.add(kMessage);
    const Bytes digest = running.finish();
    const auto raw = madeKey("RSA").signRawPKCS1(crypto::digestInfo(hash, digest));
    EXPECT_TRUE(libraryAccepts(madeKey("RSA"), hash, raw.value())) << name;
  }
  EXPECT_FALSE(crypto::hashAlgorithmNamed("SHA256"));
}

TEST(Signature, WithPSSIsWhatOthersVerifyUpToTheLongestSalt) {
  const HashAlgorithm hash = HashAlgorithm::sha256;
  const Bytes digest = crypto::digestOf(hash, kMessage);
  // a modulus one bit longer than whole bytes has a byte in front of what is encoded
  for (const auto &[bits, longest] : {std::pair(1024, 94), {1025, 94}, {1030, 95}}) {
    SCOPED_TRACE(bits);
    const crypto::PrivateKey key = crypto::PrivateKey::generateRSA(bits).value();
    for (const int salt : {0, 32, longest}) {
      const crypto::PSSParameters parameters{hash, hash, static_cast<std::size_t>(salt)};
      const auto block = crypto::padPSS(digest, parameters, bits);
      const SecretBytes signature = key.rawRSA(block.value()).value();
      EXPECT_TRUE(libraryAccepts(key, hash, signature.reveal(), salt));
      EXPECT_EQ(crypto::hashOfPSSBlock(*block, bits).has_value(), salt == 32);
      EXPECT_EQ(crypto::padPSS(digest, parameters, bits) == block, salt == 0);
      const auto accepts = [&](ByteView what, const crypto::PSSParameters &with) {
        return crypto::verifyPSS(key.publicKey(), signature.reveal(), what, with);
      };
      EXPECT_TRUE(accepts(digest, parameters));
      EXPECT_FALSE(accepts(Bytes(32), parameters));
      EXPECT_FALSE(accepts(digest, {hash, hash, parameters.saltLength + 1}));
      EXPECT_FALSE(accepts(digest, {hash, HashAlgorithm::sha1, parameters.saltLength}));
    }
    EXPECT_FALSE(crypto::padPSS(digest, {hash, hash, static_cast<std::size_t>(longest) + 1}, bits));
    EXPECT_FALSE(crypto::padPSS(Bytes(31), {hash, hash, 0}, bits));
  }
}

TEST(Signature, OnACurveHasTwoForms) {
  Bytes der = madeKey("EC").signDigestECDSA(Bytes(32, 1)).value();
  const Bytes joined = crypto::joinedSignature(der, 32).value();
  EXPECT_EQ(joined.size(), 64U);
  EXPECT_EQ(crypto::derSignature(joined), der);
  EXPECT_FALSE(crypto::derSignature(Bytes(63, 1)));
  EXPECT_FALSE(crypto::joinedSignature(der, 31)) << "longer than the field";
  EXPECT_FALSE(crypto::verifyDigestECDSA(madeKey("RSA").publicKey(), der, Bytes(32, 1)));
  EXPECT_FALSE(crypto::verifyEd25519(madeKey("EC").publicKey(), der, Bytes(32, 1)));
  der.push_back(0);
  EXPECT_FALSE(crypto::joinedSignature(der, 32));
}

}  // namespace
