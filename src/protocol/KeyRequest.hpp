#pragma once

#include <cstddef>
#include <optional>

#include "base/Bytes.hpp"
#include "crypto/PublicKey.hpp"

namespace protocol {

// What the data of `sign_data` and `decrypt_data` mean (docs/protocol.md). The daemon relays the
// data without a look at them. Requesters and key holders both use these rules.
enum class KeyOperation {
  signPKCS1,    // RSA: pads the data (PKCS #1 v1.5, RFC 8017 9.2) and signs them as they are
  rawRSA,       // RSA: the private operation on a block that the requester has padded
  signECDSA,    // EC: signs a digest; the answer is a DER ECDSA-Sig-Value (RFC 3279 2.2.3)
  signEd25519,  // Ed25519: signs a message (RFC 8032)
  deriveECDH,   // EC: the X coordinate of the point shared with the given one (SEC 1, 3.3.1)
};

// The operation that such data ask for. Nothing if the data are too short or too long for the key,
// or the key's type can't do it. Does not check that a point lies on the curve.
[[nodiscard]] std::optional<KeyOperation> operationToSign(const crypto::PublicKey &key,
                                                          ByteView data);
[[nodiscard]] std::optional<KeyOperation> operationToDecrypt(const crypto::PublicKey &key,
                                                             ByteView data);

// How many bytes an RSA key pads and signs at most; 0 if the key is too short for any padding.
[[nodiscard]] std::size_t mostToPad(const crypto::PublicKey &key);

// True if the answer to a request to sign these data is the key's signature.
[[nodiscard]] bool isSignature(const crypto::PublicKey &key, ByteView data, ByteView answer);

}  // namespace protocol
