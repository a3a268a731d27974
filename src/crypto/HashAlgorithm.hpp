#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

#include "base/Bytes.hpp"

namespace crypto {

// The digests of FIPS 180-4 that signatures and OAEP use.
enum class HashAlgorithm { sha1, sha224, sha256, sha384, sha512 };

inline constexpr std::array kHashAlgorithms{HashAlgorithm::sha1, HashAlgorithm::sha224,
                                            HashAlgorithm::sha256, HashAlgorithm::sha384,
                                            HashAlgorithm::sha512};

// The algorithm with a name like "sha256"; nothing for any other text.
[[nodiscard]] std::optional<HashAlgorithm> hashAlgorithmNamed(std::string_view name);

// The name for people and for the library: "sha256".
[[nodiscard]] const char *nameOf(HashAlgorithm algorithm);

// How many bytes a digest has.
[[nodiscard]] std::size_t digestSize(HashAlgorithm algorithm);

// The digest of all bytes.
[[nodiscard]] Bytes digestOf(HashAlgorithm algorithm, ByteView bytes);

// The DER DigestInfo that RSA signs with PKCS #1 v1.5 padding (RFC 8017 9.2, note 1). `digest` must
// have the algorithm's size.
[[nodiscard]] Bytes digestInfo(HashAlgorithm algorithm, ByteView digest);

// The algorithm of an exact DigestInfo; nothing if the data are none.
[[nodiscard]] std::optional<HashAlgorithm> hashOfDigestInfo(ByteView data);

}  // namespace crypto
