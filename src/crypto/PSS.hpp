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
// Nothing if the digest has not its algorithm's size, or salt and digest do not fit into the key.
[[nodiscard]] std::optional<Bytes> padPSS(ByteView digest, const PSSParameters &parameters,
                                          int modulusBits);

// The digest's algorithm of a block with PSS padding whose mask and salt have that algorithm and
// its length, for a modulus of `modulusBits`. The padding is taken off and checked: a block that
// was blinded or put together otherwise does not pass by chance.
[[nodiscard]] std::optional<HashAlgorithm> hashOfPSSBlock(ByteView block, int modulusBits);

// True if `signature` is one over the digest with exactly these parameters.
[[nodiscard]] bool verifyPSS(const PublicKey &key, ByteView signature, ByteView digest,
                             const PSSParameters &parameters);

}  // namespace crypto
