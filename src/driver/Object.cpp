#include "driver/Object.hpp"

#include <algorithm>
#include <array>
#include <cstring>

namespace driver {
namespace {

// The secret attributes of private and secret keys.
constexpr std::array<CK_ATTRIBUTE_TYPE, 7> kSecretParts{
    CKA_VALUE,      CKA_PRIVATE_EXPONENT, CKA_PRIME_1,    CKA_PRIME_2,
    CKA_EXPONENT_1, CKA_EXPONENT_2,       CKA_COEFFICIENT};

// A malformed CKA_SENSITIVE or CKA_EXTRACTABLE in a program's template hides the key too.
bool isHidden(const Object &object, CK_ATTRIBUTE_TYPE type) {
  const auto isOther = [&](CK_ATTRIBUTE_TYPE flag, const Bytes &open) {
    const auto found = object.attributes.find(flag);
    return found != object.attributes.end() && found->second != open;
  };
  return std::ranges::find(kSecretParts, type) != kSecretParts.end() &&
         (isOther(CKA_SENSITIVE, no()) || isOther(CKA_EXTRACTABLE, yes()));
}

std::optional<ByteView> valueOf(const Object &object, CK_ATTRIBUTE_TYPE type) {
  if (type == CKA_VALUE && !object.secret.empty()) {
    return object.secret.reveal();
  }
  const auto found = object.attributes.find(type);
  return found == object.attributes.end() ? std::nullopt : std::optional<ByteView>(found->second);
}

CK_RV fillOne(CK_ATTRIBUTE &wanted, const Object &object) {
  const CK_ULONG room = wanted.ulValueLen;
  wanted.ulValueLen = CK_UNAVAILABLE_INFORMATION;
  if (isHidden(object, wanted.type)) {
    return CKR_ATTRIBUTE_SENSITIVE;
  }
  const auto value = valueOf(object, wanted.type);
  if (!value) {
    return CKR_ATTRIBUTE_TYPE_INVALID;
  }
  if (wanted.pValue != nullptr && room < value->size()) {
    return CKR_BUFFER_TOO_SMALL;
  }
  wanted.ulValueLen = value->size();
  if (wanted.pValue != nullptr) {
    std::ranges::copy(*value, static_cast<std::uint8_t *>(wanted.pValue));
  }
  return CKR_OK;
}

bool fitsOne(const Object &object, const CK_ATTRIBUTE &wanted) {
  const auto value = isHidden(object, wanted.type) ? std::nullopt : valueOf(object, wanted.type);
  return value &&
         base::equal(*value, {static_cast<const std::uint8_t *>(wanted.pValue), wanted.ulValueLen});
}

}  // namespace

Bytes attributeOf(bool value) {
  return value ? yes() : no();
}

Bytes attributeOf(CK_ULONG value) {
  Bytes bytes(sizeof value);
  std::memcpy(bytes.data(), &value, sizeof value);
  return bytes;
}

bool Object::has(CK_ATTRIBUTE_TYPE type) const {
  const auto found = attributes.find(type);
  return found != attributes.end() && found->second == yes();
}

CK_RV fill(std::span<CK_ATTRIBUTE> wanted, const Object &object) {
  CK_RV result = CKR_OK;
  for (CK_ATTRIBUTE &attribute : wanted) {
    const CK_RV one = fillOne(attribute, object);
    result = one == CKR_OK ? result : one;
  }
  return result;
}

bool fits(const Object &object, std::span<const CK_ATTRIBUTE> wanted) {
  return std::ranges::all_of(
      wanted, [&](const CK_ATTRIBUTE &attribute) { return fitsOne(object, attribute); });
}

bool isWellFormed(std::span<const CK_ATTRIBUTE> given) {
  return std::ranges::all_of(given, [](const CK_ATTRIBUTE &attribute) {
    return attribute.pValue != nullptr || attribute.ulValueLen == 0;
  });
}

}  // namespace driver
