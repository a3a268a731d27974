#pragma once

#include <optional>
#include <vector>

#include "base/Bytes.hpp"
#include "base/Error.hpp"
#include "base/Secret.hpp"

namespace crypto {

// The most key-derivation rounds that a file may ask for in all, those of its MAC included. More
// would stop the program for minutes.
inline constexpr long kPkcs12Rounds = 2'000'000;

// What a PKCS #12 file (RFC 7292) holds, in the order of the file.
struct Pkcs12Content {
  std::vector<SecretBytes> keys;    // each a PKCS #8 PrivateKeyInfo in DER
  std::vector<Bytes> certificates;  // X.509, DER
};

// Opens a PKCS #12 file. `password` null: none. Files encrypted with algorithms of old (RC2-40) are
// read with the library's legacy provider, in a context that ends with the call. Nothing, with the
// reason, if the bytes are no such file, it asks for more than kPkcs12Rounds, or the password does
// not fit (then the error's domain is "password").
[[nodiscard]] std::optional<Pkcs12Content> readPkcs12(ByteView file, const SecretText *password,
                                                      Error *error = nullptr);

}  // namespace crypto
