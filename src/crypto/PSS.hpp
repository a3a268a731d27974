#pragma once

#include <cstddef>
#include <optional>

#include "base/Bytes.hpp"
#include "crypto/HashAlgorithm.hpp"
#include "crypto/PublicKey.hpp"

namespace crypto {

// RSA signatures with PSS padding (RFC 8017 8.1 and 9.1).
struct PSSParameters {
  HashAlgorithm hash = HashAlgorithm::sha1;      // of the message
  HashAlgorithm maskHash = HashAlgorithm::sha1;  // inside the mask generation function MGF1
  std::size_t saltLength = 0;
};

// The padded block, as long as the modulus, over the digest of a message, with a fresh salt.
// Nothing if the digest's size is not its algorithm's, or salt and digest do not fit into the key.
[[nodiscard]] std::optional<Bytes> padPSS(ByteView digest, const PSSParameters &parameters,
                                          int modulusBits);

// The digest algorithm of a PSS block for a modulus of `modulusBits`. Mask and salt must use the
// same algorithm and its length. The padding is removed and checked: a blinded or otherwise
// constructed block does not pass by chance.
[[nodiscard]] std::optional<HashAlgorithm> hashOfPSSBlock(ByteView block, int modulusBits);

// True if `signature` is one over the digest with exactly these parameters.
[[nodiscard]] bool verifyPSS(const PublicKey &key, ByteView signature, ByteView digest,
                             const PSSParameters &parameters);

}  // namespace crypto
