#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "base/Bytes.hpp"
#include "base/Secret.hpp"
#include "crypto/HashAlgorithm.hpp"

namespace crypto {

// XORs the mask of MGF1 (RFC 8017 B.2.1), made from `seed`, into `target`.
void layMGF1(std::span<std::uint8_t> target, ByteView seed, HashAlgorithm hash);

// The content T of a block with the signature padding of PKCS #1 v1.5 (RFC 8017 9.2: 00 01 FF … 00
// T, with at least eight FF). It is everything behind the padding, so that bytes behind a shorter
// content are part of it. Borrowed from the block. Nothing if the padding is not this one.
[[nodiscard]] std::optional<ByteView> contentOfPKCS1Block(ByteView block);

// Remove the padding from a block that the private RSA operation has given; it is as long as the
// modulus. Nothing if the padding is wrong. Neither time nor result tells what is wrong with it:
// with that knowledge an attacker could decrypt the block bit by bit.

// Encryption padding of PKCS #1 v1.5 (RFC 8017 7.2.2). A caller that talks to strangers should
// continue with random bytes if it gets nothing (RFC 5246 7.4.7.1).
[[nodiscard]] std::optional<SecretBytes> unpadPKCS1(ByteView block);

// OAEP (RFC 8017 7.1.2). `maskHash` is the digest inside the mask generation function MGF1.
[[nodiscard]] std::optional<SecretBytes> unpadOAEP(ByteView block, HashAlgorithm hash,
                                                   HashAlgorithm maskHash, ByteView label = {});

}  // namespace crypto
