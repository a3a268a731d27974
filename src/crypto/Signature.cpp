#include "crypto/Signature.hpp"

#include <openssl/err.h>
#include <openssl/evp.h>

#include "crypto/Library.hpp"
#include "crypto/Owned.hpp"

namespace crypto {

bool verifyDigestECDSA(const PublicKey &key, ByteView signature, ByteView digest) {
  if (key.type() != KeyType::ec) {
    return false;
  }
  const Owned<EVP_PKEY_CTX, EVP_PKEY_CTX_free> context(
      EVP_PKEY_CTX_new_from_pkey(libraryContext(), key.native(), nullptr));
  const bool isValid = context && EVP_PKEY_verify_init(context.get()) == 1 &&
                       EVP_PKEY_verify(context.get(), signature.data(), signature.size(),
                                       digest.data(), digest.size()) == 1;
  ERR_clear_error();
  return isValid;
}

bool verifyEd25519(const PublicKey &key, ByteView signature, ByteView message) {
  if (key.type() != KeyType::ed25519) {
    return false;
  }
  const Owned<EVP_MD_CTX, EVP_MD_CTX_free> context(EVP_MD_CTX_new());
  const bool isValid = context &&
                       EVP_DigestVerifyInit_ex(context.get(), nullptr, nullptr, libraryContext(),
                                               nullptr, key.native(), nullptr) == 1 &&
                       EVP_DigestVerify(context.get(), signature.data(), signature.size(),
                                        message.data(), message.size()) == 1;
  ERR_clear_error();
  return isValid;
}

}  // namespace crypto
