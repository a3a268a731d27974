#pragma once

#include <optional>
#include <string>

#include "base/Bytes.hpp"
#include "crypto/HashAlgorithm.hpp"
#include "crypto/PublicKey.hpp"
#include "ctl/Outcome.hpp"

namespace ctl {

// How a file is prepared for a card's key: "sha256" and its like, "none" for an input that is what
// the key signs already (a DigestInfo or any short bytes, a digest, a message). Empty: what is
// usual for the key.
using HashChoice = std::string;

// What the key has to sign for this input: a DigestInfo for RSA, a digest for an elliptic curve,
// the message itself for Ed25519. Nothing, with `failure` filled, if the key or the choice does not
// allow that.
[[nodiscard]] std::optional<Bytes> dataToSign(const crypto::PublicKey &key,
                                              const HashChoice &choice, ByteView input,
                                              Failure &failure);

}  // namespace ctl
