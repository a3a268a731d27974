#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "base/Bytes.hpp"
#include "base/Error.hpp"
#include "base/Secret.hpp"

namespace crypto {

// The work that one file may cause in total. More would block the program for minutes.
//
// Rounds of key derivation: the iterations of its MAC, of each encrypted part and of each encrypted
// key. One with scrypt counts N·r·p, see DerivationBudget.
inline constexpr std::uint64_t kPkcs12Rounds = 2'000'000;
// Bytes that one derivation with scrypt may fill; the library's own bound.
inline constexpr std::uint64_t kPkcs12ScryptMemory = 32 * 1024 * 1024;
// Bags, including nested ones and the parts that contain them. Each may be a key to parse or an
// identity to store.
inline constexpr std::size_t kPkcs12Bags = 1024;

// What a PKCS #12 file (RFC 7292) holds, in the order of the file. The local key ID (RFC 2985
// 5.5.2) is empty where there is none.
struct Pkcs12Content {
  struct Key {
    SecretBytes info;  // a PKCS #8 PrivateKeyInfo in DER
    Bytes localKeyID;
  };
  struct CertificateBag {
    Bytes der;  // X.509
    Bytes localKeyID;
  };
  std::vector<Key> keys;
  std::vector<CertificateBag> certificates;
};

// Opens a PKCS #12 file. `password` null: none. What is encrypted with algorithms of old (RC2-40)
// is read with the library's legacy provider, in a context that ends with the call. Each key is
// derived once. Nothing, with the reason, if the bytes are no such file, it asks for more than the
// bounds above, or the password does not fit (then the error's domain is "password").
[[nodiscard]] std::optional<Pkcs12Content> readPkcs12(ByteView file, const SecretText *password,
                                                      Error *error = nullptr);

}  // namespace crypto
