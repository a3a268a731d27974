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

// Where handles of sessions and objects come from: each is a number that was not given before, and
// below 2^31, because some programs keep them in a signed integer. Throws std::bad_alloc at the end
// of the numbers.
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

// An object as programs see it. It never changes, so searches and operations keep it as it was.
struct Object {
  CK_OBJECT_HANDLE handle = CK_INVALID_HANDLE;
  std::map<CK_ATTRIBUTE_TYPE, Bytes> attributes;
  std::optional<crypto::PublicKey> key;  // of keys that are on the card
  std::optional<CardIdentity> identity;  // of private keys: how requests name them
  SecretBytes secret;                    // of secret keys: their value

  // True if the attribute is there and CK_TRUE.
  [[nodiscard]] bool has(CK_ATTRIBUTE_TYPE type) const;
};

using ObjectPointer = std::shared_ptr<const Object>;

// How attributes are written: a CK_BBOOL, a CK_ULONG; yes() and no() where it is always the same.
[[nodiscard]] Bytes attributeOf(bool value);
[[nodiscard]] Bytes attributeOf(CK_ULONG value);
[[nodiscard]] inline Bytes yes() {
  return {CK_TRUE};
}
[[nodiscard]] inline Bytes no() {
  return {CK_FALSE};
}

// Fills a template with the object's attributes (PKCS #11 v2.40, C_GetAttributeValue): each one on
// its own, whatever became of those before it. The result names one that could not be had.
[[nodiscard]] CK_RV fill(std::span<CK_ATTRIBUTE> wanted, const Object &object);

// True if the object has all of the attributes with exactly these values.
[[nodiscard]] bool fits(const Object &object, std::span<const CK_ATTRIBUTE> wanted);

// False if a value in a template that the program filled is missing where it has a length.
[[nodiscard]] bool isWellFormed(std::span<const CK_ATTRIBUTE> given);

}  // namespace driver
