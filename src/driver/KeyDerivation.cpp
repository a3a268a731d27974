#include "driver/KeyDerivation.hpp"

#include <algorithm>
#include <cstring>

#include "crypto/KeyParts.hpp"
#include "driver/OperationKey.hpp"

namespace driver {
namespace {

std::optional<CK_ULONG> numberIn(const Bytes &value) {
  CK_ULONG number = 0;
  if (value.size() != sizeof number) {
    return std::nullopt;
  }
  std::memcpy(&number, value.data(), sizeof number);
  return number;
}

// The attributes of a derived key: those of the program's template, and the fixed ones.
CK_RV attributesFor(std::span<const CK_ATTRIBUTE> wanted, Object &object) {
  object.attributes = {{CKA_CLASS, attributeOf(CK_ULONG{CKO_SECRET_KEY})},
                       {CKA_KEY_TYPE, attributeOf(CK_ULONG{CKK_GENERIC_SECRET})},
                       {CKA_TOKEN, no()},
                       {CKA_PRIVATE, no()},
                       {CKA_MODIFIABLE, no()},
                       {CKA_SENSITIVE, no()},
                       {CKA_EXTRACTABLE, yes()},
                       {CKA_LABEL, {}},
                       {CKA_ID, {}}};
  for (const CK_ATTRIBUTE &attribute : wanted) {
    const auto *const value = static_cast<const std::uint8_t *>(attribute.pValue);
    object.attributes[attribute.type].assign(value, value + attribute.ulValueLen);
  }
  object.attributes[CKA_LOCAL] = no();
  object.attributes[CKA_ALWAYS_SENSITIVE] = no();
  object.attributes[CKA_NEVER_EXTRACTABLE] = no();
  if (object.has(CKA_TOKEN)) {
    return CKR_TOKEN_WRITE_PROTECTED;
  }
  const bool isSecretKey =
      numberIn(object.attributes[CKA_CLASS]) == std::optional<CK_ULONG>(CKO_SECRET_KEY);
  return isSecretKey && !object.attributes.contains(CKA_VALUE) ? CKR_OK : CKR_TEMPLATE_INCONSISTENT;
}

// The length of the key in bytes; nothing if the shared secret is shorter.
std::optional<std::size_t> lengthFor(Object &object, std::size_t fieldBytes) {
  const auto wanted = object.attributes.find(CKA_VALUE_LEN);
  if (wanted == object.attributes.end()) {
    return fieldBytes;
  }
  const auto length = numberIn(wanted->second);
  return length && *length >= 1 && *length <= fieldBytes ? length : std::nullopt;
}

}  // namespace

CK_RV deriveKey(Driver &driver, const Session &session, const CK_MECHANISM *mechanism,
                CK_OBJECT_HANDLE baseKey, std::span<const CK_ATTRIBUTE> wanted,
                CK_OBJECT_HANDLE *handle) {
  if (handle == nullptr || !isWellFormed(wanted)) {
    return CKR_ARGUMENTS_BAD;
  }
  OperationKey key;
  Object object;
  if (const CK_RV result = prepareKey(driver, mechanism, baseKey, CKF_DERIVE, key);
      result != CKR_OK) {
    return result;
  }
  if (const CK_RV result = attributesFor(wanted, object); result != CKR_OK) {
    return result;
  }
  const std::size_t fieldBytes = key.publicKey().sizeInBytes();
  const auto length = lengthFor(object, fieldBytes);
  if (!length) {
    return CKR_ATTRIBUTE_VALUE_INVALID;
  }
  if (!crypto::isPointFor(key.publicKey(), key.parameters.peerPoint)) {
    return CKR_MECHANISM_PARAM_INVALID;
  }
  SecretBytes shared;
  if (const CK_RV result = driver.token.request(CardOperation::decrypt, *key.object,
                                                key.parameters.peerPoint, shared);
      result != CKR_OK) {
    return result;
  }
  if (shared.reveal().size() != fieldBytes) {
    return CKR_DEVICE_ERROR;
  }
  object.handle = driver.handles.next();
  object.secret = SecretBytes(shared.reveal().last(*length));
  object.attributes[CKA_VALUE_LEN] = attributeOf(CK_ULONG{*length});
  *handle = object.handle;
  return driver.keep(session, std::move(object));
}

}  // namespace driver
