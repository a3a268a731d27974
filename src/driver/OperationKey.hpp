#pragma once

#include "driver/Mechanisms.hpp"
#include "driver/Object.hpp"
#include "driver/Pkcs11.hpp"

namespace driver {

class Driver;

// A key, and the mechanism and parameters of an operation with it.
struct OperationKey {
  const Mechanism *mechanism = nullptr;
  MechanismParameters parameters;
  ObjectPointer object;

  [[nodiscard]] Scheme scheme() const { return mechanism->scheme; }
  [[nodiscard]] const crypto::PublicKey &publicKey() const { return *object->key; }
};

// Validates the arguments of an …Init function or of C_DeriveKey. `purpose` is CKF_SIGN,
// CKF_VERIFY, CKF_ENCRYPT, CKF_DECRYPT or CKF_DERIVE.
[[nodiscard]] CK_RV prepareKey(Driver &driver, const CK_MECHANISM *given, CK_OBJECT_HANDLE handle,
                               CK_FLAGS purpose, OperationKey &prepared);

}  // namespace driver
