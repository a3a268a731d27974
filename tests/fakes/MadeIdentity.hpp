#pragma once

#include <memory>
#include <string>

#include "encodings/HexString.hpp"
#include "fakes/MadeKeys.hpp"
#include "platform/ItemStore.hpp"

namespace fakes {

// A fresh P-256 identity with this common name, described under this label.
inline platform::IdentityRecord makeIdentity(const std::string &commonName,
                                             const std::string &label) {
  const crypto::Identity identity = makeIdentity(commonName);
  platform::IdentityRecord record;
  record.reference = std::make_shared<const crypto::Identity>(identity);
  record.label = label;
  record.publicKeyHash = encodings::sha1(*identity.key.publicKey().externalRepresentation());
  record.canSign = true;
  return record;
}

}  // namespace fakes
