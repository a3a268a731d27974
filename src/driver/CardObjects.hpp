#pragma once

#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "driver/Card.hpp"
#include "driver/DriverSettings.hpp"
#include "driver/Object.hpp"

namespace driver {

// The objects of a card as it was read at one time.
struct CardObjects {
  std::shared_ptr<const CardContent> content;  // what they were made from
  std::string serialNumber;                    // 16 digits from the first key's hash
  std::vector<ObjectPointer> objects;          // certificates first, in the card's order
  std::unordered_map<CK_OBJECT_HANDLE, ObjectPointer> byHandle;  // the same
};

// Makes objects from what a card holds: a certificate object for each certificate, a private and a
// public key object for each distinct key of a kind that the token can use (RSA of 1024 to 4096
// bits, P-256, P-384, P-521; Ed25519 only where the settings say so, else not even its certificate
// is shown). Labels are fit to be shown, since programs print them as
// they are. The same thing gets the same handle each time, so that a card which goes and comes
// leaves the handles of programs valid. For one thread at a time.
class CardObjectBuilder {
 public:
  explicit CardObjectBuilder(HandleCounter &handles) : handles_(handles) {}

  // The content is not empty.
  [[nodiscard]] std::shared_ptr<const CardObjects> objectsOf(
      std::shared_ptr<const CardContent> content, const DriverSettings &settings);

 private:
  [[nodiscard]] CK_OBJECT_HANDLE handleOf(CK_OBJECT_CLASS objectClass, const Bytes &hash);
  [[nodiscard]] ObjectPointer certificateObject(const CardIdentity &identity,
                                                const std::string &label);
  [[nodiscard]] ObjectPointer publicKeyObject(const CardIdentity &identity,
                                              const std::string &label,
                                              const crypto::PublicKey &key);
  [[nodiscard]] ObjectPointer privateKeyObject(const CardIdentity &identity,
                                               const std::string &label,
                                               const crypto::PublicKey &key, bool needsLogin);

  HandleCounter &handles_;
  std::map<std::pair<CK_OBJECT_CLASS, Bytes>, CK_OBJECT_HANDLE> handlesByHash_;
};

}  // namespace driver
