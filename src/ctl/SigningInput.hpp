#pragma once

#include <optional>
#include <string>

#include "base/Bytes.hpp"
#include "crypto/HashAlgorithm.hpp"
#include "crypto/PublicKey.hpp"
#include "ctl/Outcome.hpp"

namespace ctl {

// How an input is prepared for a card's key: a digest such as "sha256", or "none" if the input is
// already what the key signs (a DigestInfo or any short bytes, a digest, a message). Empty: the
// key's usual choice.
using HashChoice = std::string;

// The data that the key has to sign for this input: a DigestInfo for RSA, a digest for an elliptic
// curve, the message itself for Ed25519. Nothing, with `failure` filled, if key and choice do not
// fit.
[[nodiscard]] std::optional<Bytes> dataToSign(const crypto::PublicKey &key,
                                              const HashChoice &choice, ByteView input,
                                              Failure &failure);

}  // namespace ctl
