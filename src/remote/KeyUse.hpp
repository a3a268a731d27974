#pragma once

#include <optional>
#include <string>

#include "base/Bytes.hpp"
#include "base/Error.hpp"
#include "base/Secret.hpp"
#include "crypto/PrivateKey.hpp"
#include "crypto/PublicKey.hpp"

namespace remote {

// What a key can do for a program on the other machine.
enum class KeyOperation {
  signPKCS1,    // RSA: pads the data (PKCS #1 v1.5) and signs it as it is
  rawRSA,       // RSA: the private operation on one block
  signECDSA,    // EC: signs a digest
  signEd25519,  // Ed25519: signs a message
  deriveECDH,   // EC: the X coordinate of the shared point
};

// What the bytes of a request ask for.
struct KeyUse {
  std::optional<KeyOperation> operation;  // nothing: refused
  std::string description;  // for people: what can be known about the bytes, or why it is refused
};

// Judges the data of a request to sign or to decrypt. `authenticates`: the key is also the one with
// which this program proves who it is. Then a program on the other machine could have a challenge
// signed, and so take this program's place: 16 bytes are refused, and so is everything in which 16
// bytes can hide, namely blocks that are not known to be something else, and decryption, which is
// the same operation as signing.
[[nodiscard]] KeyUse useForSigning(const crypto::PublicKey &key, ByteView data, bool authenticates);
[[nodiscard]] KeyUse useForDecryption(const crypto::PublicKey &key, ByteView data,
                                      bool authenticates);

// Does it. Takes milliseconds; may be called on any thread.
[[nodiscard]] std::optional<SecretBytes> perform(KeyOperation operation,
                                                 const crypto::PrivateKey &key, ByteView data,
                                                 Error *error = nullptr);

}  // namespace remote
