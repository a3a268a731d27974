#include "driver/OperationKey.hpp"

#include <algorithm>
#include <array>

#include "driver/Driver.hpp"

namespace driver {
namespace {

struct Purpose {
  CK_FLAGS flag;
  CK_ATTRIBUTE_TYPE attribute;  // by which a key permits it
  bool asksHolder;              // requires a private key: public keys have CKA_DERIVE too
};

constexpr std::array kPurposes{
    Purpose{CKF_SIGN, CKA_SIGN, true}, Purpose{CKF_VERIFY, CKA_VERIFY, false},
    Purpose{CKF_ENCRYPT, CKA_ENCRYPT, false}, Purpose{CKF_DECRYPT, CKA_DECRYPT, true},
    Purpose{CKF_DERIVE, CKA_DERIVE, true}};

bool allows(const Object &object, CK_FLAGS purpose) {
  const auto *const row = std::ranges::find(kPurposes, purpose, &Purpose::flag);
  return row != kPurposes.end() && object.has(row->attribute) &&
         (object.identity.has_value() || !row->asksHolder);
}

}  // namespace

CK_RV prepareKey(Driver &driver, const CK_MECHANISM *given, CK_OBJECT_HANDLE handle,
                 CK_FLAGS purpose, OperationKey &prepared) {
  if (given == nullptr) {
    return CKR_ARGUMENTS_BAD;
  }
  prepared.mechanism = mechanismOf(given->mechanism);
  if (prepared.mechanism == nullptr || (prepared.mechanism->flags & purpose) == 0) {
    return CKR_MECHANISM_INVALID;
  }
  driver.token.awaitRestart();
  CK_RV found = driver.findObject(handle, prepared.object);
  if (found == CKR_DEVICE_REMOVED) {  // removed after the first wait
    driver.token.awaitRestart();
    found = driver.findObject(handle, prepared.object);
  }
  if (found != CKR_OK) {
    return found == CKR_OBJECT_HANDLE_INVALID ? CKR_KEY_HANDLE_INVALID : found;
  }
  if (!prepared.object->key || prepared.publicKey().type() != keyTypeOf(prepared.scheme())) {
    return CKR_KEY_TYPE_INCONSISTENT;
  }
  if (!allows(*prepared.object, purpose)) {
    return CKR_KEY_FUNCTION_NOT_PERMITTED;
  }
  if (!driver.token.isAccessible(*prepared.object)) {
    return CKR_USER_NOT_LOGGED_IN;
  }
  return readParameters(*given, *prepared.mechanism, prepared.parameters);
}

}  // namespace driver
