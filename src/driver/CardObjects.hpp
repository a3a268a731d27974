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

// The objects of a card at the time of reading.
struct CardObjects {
  std::shared_ptr<const CardContent> content;  // the content from which they were built
  std::string serialNumber;            // the first 16 hexadecimal digits of the first key's hash
  std::vector<ObjectPointer> objects;  // certificates first, in the card's order
  std::unordered_map<CK_OBJECT_HANDLE, ObjectPointer> byHandle;  // the same objects
};

// Builds PKCS #11 objects from the card's content: a certificate object for each certificate, and a
// private and a public key object for each distinct usable key (RSA of 1024 to 4096 bits, P-256,
// P-384, P-521). Ed25519 keys and their certificates are shown only if the settings say so. Labels
// are sanitized for display, since programs print them. The same key or certificate always gets the
// same handle, so handles stay valid when a card is removed and inserted again. Not thread-safe.
class CardObjectBuilder {
 public:
  explicit CardObjectBuilder(HandleCounter &handles) : handles_(handles) {}

  // `content` must not be empty.
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
