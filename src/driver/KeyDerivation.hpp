#pragma once

#include <span>

#include "driver/Driver.hpp"
#include "driver/Pkcs11.hpp"

namespace driver {

// C_DeriveKey with CKM_ECDH1_DERIVE: the X coordinate of the shared point becomes a secret key
// object of the session. CKA_VALUE_LEN truncates it by removing leading bytes (PKCS #11 v2.40
// mechanisms, 2.3.8).
[[nodiscard]] CK_RV deriveKey(Driver &driver, const Session &session, const CK_MECHANISM *mechanism,
                              CK_OBJECT_HANDLE baseKey, std::span<const CK_ATTRIBUTE> wanted,
                              CK_OBJECT_HANDLE *handle);

}  // namespace driver
