#pragma once

#include <memory>
#include <string>

#include "crypto/Identity.hpp"
#include "platform/ItemStore.hpp"
#include "support/HexString.hpp"

namespace fakes {

// A fresh P-256 identity with this common name, described under this label.
inline platform::IdentityRecord makeIdentity(const std::string &commonName,
                                             const std::string &label) {
  const auto key = crypto::PrivateKey::generateP256();
  const auto certificate =
      crypto::Certificate::selfSigned(*key, commonName, /*days=*/1, /*serverName=*/true);
  platform::IdentityRecord record;
  record.reference = std::make_shared<const crypto::Identity>(crypto::Identity{*certificate, *key});
  record.label = label;
  record.publicKeyHash = support::sha1(*key->publicKey().externalRepresentation());
  record.canSign = true;
  return record;
}

}  // namespace fakes
