#pragma once

#include "encodings/HexString.hpp"
#include "fakes/MadeKeys.hpp"
#include "platform/ItemStore.hpp"

namespace fakes {

// A fresh P-256 identity with this common name, described under this label.
inline platform::IdentityRecord makeIdentity(const std::string &commonName,
                                             const std::string &label) {
  platform::IdentityRecord record;
  record.reference = std::make_shared<const crypto::Identity>(makeIdentity(commonName));
  record.label = label;
  record.publicKeyHash = *record.reference->key.publicKey().hash();
  record.canSign = true;
  return record;
}

}  // namespace fakes
