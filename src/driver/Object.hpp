#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/Bytes.hpp"
#include "base/Secret.hpp"
#include "crypto/PublicKey.hpp"
#include "driver/Card.hpp"
#include "driver/Pkcs11.hpp"

namespace driver {

// Allocates handles of sessions and objects. Each is new and below 2^31, because some programs
// store them in a signed integer. Throws std::bad_alloc when they are used up.
class HandleCounter {
 public:
  [[nodiscard]] CK_ULONG next() {
    const CK_ULONG number = last_.fetch_add(1) + 1;
    if (number >= (CK_ULONG{1} << 31U)) {
      throw std::bad_alloc();
    }
    return number;
  }

 private:
  std::atomic<CK_ULONG> last_{CK_INVALID_HANDLE};
};

// A PKCS #11 object. Immutable, so searches and operations can hold on to it.
struct Object {
  CK_OBJECT_HANDLE handle = CK_INVALID_HANDLE;
  std::map<CK_ATTRIBUTE_TYPE, Bytes> attributes;
  std::optional<crypto::PublicKey> key;  // only for key objects of the card
  std::optional<CardIdentity> identity;  // only for private keys; identifies the key in requests
  SecretBytes secret;                    // only for secret keys: the value

  // True if the attribute is present and CK_TRUE.
  [[nodiscard]] bool has(CK_ATTRIBUTE_TYPE type) const;
};

using ObjectPointer = std::shared_ptr<const Object>;

// Encode attribute values: CK_BBOOL or CK_ULONG.
[[nodiscard]] Bytes attributeOf(bool value);
[[nodiscard]] Bytes attributeOf(CK_ULONG value);
[[nodiscard]] inline Bytes yes() {
  return {CK_TRUE};
}
[[nodiscard]] inline Bytes no() {
  return {CK_FALSE};
}

// Fills in each attribute of a template (PKCS #11 v2.40, C_GetAttributeValue), even after one has
// failed. The result is that of an attribute that failed, or CKR_OK.
[[nodiscard]] CK_RV fill(std::span<CK_ATTRIBUTE> wanted, const Object &object);

// True if the object has all of the attributes with exactly these values.
[[nodiscard]] bool fits(const Object &object, std::span<const CK_ATTRIBUTE> wanted);

// False if a value of the program's template is null but has a length.
[[nodiscard]] bool isWellFormed(std::span<const CK_ATTRIBUTE> given);

}  // namespace driver
