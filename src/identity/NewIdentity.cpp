#include "identity/NewIdentity.hpp"

namespace identity {

platform::IdentityRecord describeNew(const crypto::Identity &identity,
                                     const std::optional<std::string> &label) {
  const crypto::PublicKey key = identity.key.publicKey();
  const bool isRSA = key.type() == crypto::KeyType::rsa;
  platform::IdentityRecord record;
  record.reference = std::make_shared<const crypto::Identity>(identity);
  record.label = label;
  record.publicKeyHash = key.hash();
  record.canSign = true;
  record.canDecrypt = isRSA;
  record.canUnwrap = isRSA;
  return record;
}

}  // namespace identity
