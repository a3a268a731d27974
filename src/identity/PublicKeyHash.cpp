#include "identity/PublicKeyHash.hpp"

#include "support/HexString.hpp"

namespace identity {

std::optional<Bytes> publicKeyHashOf(const crypto::PublicKey &key, Error *error) {
  const auto exported = key.externalRepresentation(error);
  return exported ? std::optional(support::sha1(*exported)) : std::nullopt;
}

}  // namespace identity
