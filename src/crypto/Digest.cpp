#include "crypto/Digest.hpp"

#include <openssl/evp.h>

#include <new>

#include "crypto/Library.hpp"

namespace crypto {
namespace {

Bytes digest(const char *algorithm, std::size_t size, ByteView bytes) {
  Bytes result(size);
  // Only a library without memory fails here. An empty result would not do: it equals every other
  // one.
  if (EVP_Q_digest(libraryContext(), algorithm, nullptr, bytes.data(), bytes.size(), result.data(),
                   nullptr) != 1) {
    throw std::bad_alloc();
  }
  return result;
}

}  // namespace

Bytes sha1Digest(ByteView bytes) {
  return digest("SHA1", 20, bytes);
}
Bytes sha256Digest(ByteView bytes) {
  return digest("SHA256", 32, bytes);
}

}  // namespace crypto
