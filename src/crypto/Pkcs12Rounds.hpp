#pragma once

#include <openssl/types.h>

namespace crypto {

// How often a key-derivation function is to be run, as a PKCS #12 file asks for it; a number that
// is negative or above kPkcs12Rounds is one above it. For this folder's own files.

// What stands in the file, null for the default of RFC 7292.
[[nodiscard]] long roundsOf(const ASN1_INTEGER *rounds);

// Those of a password-based encryption: PBES2 with PBKDF2 (RFC 8018), else one of the schemes of
// PKCS #12 and PKCS #5 v1.5, which share their parameters' form. 0 where there are none to read.
[[nodiscard]] long roundsOf(const X509_ALGOR *algorithm);

}  // namespace crypto
