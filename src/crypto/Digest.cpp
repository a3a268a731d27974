#include "crypto/Digest.hpp"

#include "crypto/HashAlgorithm.hpp"

namespace crypto {

Bytes sha1Digest(ByteView bytes) {
  return digestOf(HashAlgorithm::sha1, bytes);
}

Bytes sha256Digest(ByteView bytes) {
  return digestOf(HashAlgorithm::sha256, bytes);
}

}  // namespace crypto
