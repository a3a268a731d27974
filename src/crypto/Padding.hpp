#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "base/Bytes.hpp"
#include "base/Secret.hpp"
#include "crypto/HashAlgorithm.hpp"

namespace crypto {

// Lays the mask of MGF1 (RFC 8017 B.2.1), made from `seed`, over `target`.
void layMGF1(std::span<std::uint8_t> target, ByteView seed, HashAlgorithm hash);

// What a block with the signature padding of PKCS #1 v1.5 holds (RFC 8017 9.2: 00 01 FF … 00 T,
// with eight FF at least): all that stands after the padding, up to the end of the block, so that
// bytes after a shorter content count as part of it. Borrowed from the block. Nothing if it is
// none.
[[nodiscard]] std::optional<ByteView> contentOfPKCS1Block(ByteView block);

// Take the padding off a block that came out of the private RSA operation and is as long as the
// modulus. Nothing if the padding is wrong; neither the time nor anything else tells what was wrong
// with it, since whoever learns that can decrypt the block bit by bit.

// Encryption padding of PKCS #1 v1.5 (RFC 8017 7.2.2). A caller that talks to strangers should go
// on with random bytes instead of an error where it gets nothing (RFC 5246 7.4.7.1).
[[nodiscard]] std::optional<SecretBytes> unpadPKCS1(ByteView block);

// OAEP (RFC 8017 7.1.2). `maskHash` is the digest inside the mask generation function MGF1.
[[nodiscard]] std::optional<SecretBytes> unpadOAEP(ByteView block, HashAlgorithm hash,
                                                   HashAlgorithm maskHash, ByteView label = {});

}  // namespace crypto
