#pragma once

#include <optional>
#include <string>

#include "base/Bytes.hpp"
#include "base/Error.hpp"
#include "base/Secret.hpp"
#include "crypto/PrivateKey.hpp"
#include "crypto/PublicKey.hpp"
#include "protocol/KeyRequest.hpp"

namespace remote {

using protocol::KeyOperation;

// What a request may do, and why not.
struct KeyVerdict {
  std::optional<KeyOperation> operation;  // nothing: refused
  std::string description;                // for people: what the data are, or why they are refused
};

// Judge the data of a request to sign or to decrypt. `authenticates`: this program also
// authenticates with the key, by signing a challenge of 16 bytes. RSA is multiplicative: from
// signatures of a few blocks with chosen contents anybody can compute the signature of a challenge.
// So such a key signs only an exact DigestInfo of a known hash, alone or as a padded PKCS #1 v1.5
// block (RFC 8017 9.2), or a PSS block (9.1.1) that the asker has padded. It decrypts nothing:
// decryption is the same operation as signing.
[[nodiscard]] KeyVerdict judgeSigning(const crypto::PublicKey &key, ByteView data,
                                      bool authenticates);
[[nodiscard]] KeyVerdict judgeDecryption(const crypto::PublicKey &key, ByteView data,
                                         bool authenticates);

// Performs the operation. It takes milliseconds and may be called on any thread.
[[nodiscard]] std::optional<SecretBytes> perform(KeyOperation operation,
                                                 const crypto::PrivateKey &key, ByteView data,
                                                 Error *error = nullptr);

}  // namespace remote
