#include "crypto/RunningDigest.hpp"

#include <openssl/evp.h>

#include <new>

#include "crypto/Library.hpp"
#include "crypto/Owned.hpp"

namespace crypto {
namespace {

void require(int result) {
  if (result != 1) {
    throw std::bad_alloc();
  }
}

}  // namespace

RunningDigest::RunningDigest(HashAlgorithm algorithm)
    : algorithm_(algorithm), context_(EVP_MD_CTX_new(), EVP_MD_CTX_free) {
  const Owned<EVP_MD, EVP_MD_free> digest(
      EVP_MD_fetch(libraryContext(), nameOf(algorithm), nullptr));
  require(context_ && digest ? EVP_DigestInit_ex2(context_.get(), digest.get(), nullptr) : 0);
}

void RunningDigest::add(ByteView part) {
  require(EVP_DigestUpdate(context_.get(), part.data(), part.size()));
}

Bytes RunningDigest::finish() {
  Bytes digest(digestSize(algorithm_));
  require(EVP_DigestFinal_ex(context_.get(), digest.data(), nullptr));
  return digest;
}

}  // namespace crypto
