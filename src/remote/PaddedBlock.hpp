#pragma once

#include <array>
#include <optional>

#include "base/Bytes.hpp"
#include "crypto/HashAlgorithm.hpp"

namespace remote {

inline constexpr std::array kHashAlgorithms{
    crypto::HashAlgorithm::sha1, crypto::HashAlgorithm::sha224, crypto::HashAlgorithm::sha256,
    crypto::HashAlgorithm::sha384, crypto::HashAlgorithm::sha512};

// What a block with the signature padding of PKCS #1 v1.5 holds (RFC 8017 9.2: 00 01 FF … 00 T,
// with eight FF at least): all that stands after the padding, up to the end of the block, so that
// bytes after a shorter content count as part of it. Borrowed from the block. Nothing if it is
// none.
[[nodiscard]] std::optional<ByteView> contentOfPKCS1Block(ByteView block);

// The digest of a block with PSS padding (RFC 8017 9.1.1) whose mask and salt have the digest's own
// algorithm and length, for a modulus of `modulusBits`. The padding is taken off and checked: a
// block that was blinded or put together otherwise does not pass by chance.
[[nodiscard]] std::optional<crypto::HashAlgorithm> digestOfPSSBlock(ByteView block,
                                                                    int modulusBits);

}  // namespace remote
