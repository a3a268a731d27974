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

// What the bytes of a request ask for.
struct KeyVerdict {
  std::optional<KeyOperation> operation;  // nothing: refused
  std::string description;  // for people: what can be known about the bytes, or why it is refused
};

// Judges the data of a request to sign or to decrypt. `authenticates`: the key is also the one with
// which this program proves who it is, by signing a challenge of 16 bytes. RSA is multiplicative:
// from the signatures of a few blocks with free contents anybody can compute that of a challenge.
// So such a key signs nothing but digests whose whole block is prescribed, namely an exact
// DigestInfo of a known hash (as it is or as a full PKCS #1 v1.5 block, RFC 8017 9.2) and a PSS
// block (9.1.1), which the asker has padded, and it decrypts nothing, since that is the same
// operation as signing.
[[nodiscard]] KeyVerdict judgeSigning(const crypto::PublicKey &key, ByteView data,
                                      bool authenticates);
[[nodiscard]] KeyVerdict judgeDecryption(const crypto::PublicKey &key, ByteView data,
                                         bool authenticates);

// Does it. Takes milliseconds; may be called on any thread.
[[nodiscard]] std::optional<SecretBytes> perform(KeyOperation operation,
                                                 const crypto::PrivateKey &key, ByteView data,
                                                 Error *error = nullptr);

}  // namespace remote
