#pragma once

#include "driver/Driver.hpp"
#include "driver/Pkcs11.hpp"

namespace driver {

// What is asked about objects. Each is the function of the same name in PKCS #11 v2.40, 5.7.
[[nodiscard]] CK_RV getAttributeValue(Driver &driver, CK_OBJECT_HANDLE handle, CK_ATTRIBUTE *wanted,
                                      CK_ULONG count);
[[nodiscard]] CK_RV getObjectSize(Driver &driver, CK_OBJECT_HANDLE handle, CK_ULONG *size);
[[nodiscard]] CK_RV destroyObject(Driver &driver, CK_OBJECT_HANDLE handle);
[[nodiscard]] CK_RV findObjectsInit(Driver &driver, Session &session, const CK_ATTRIBUTE *wanted,
                                    CK_ULONG count);
[[nodiscard]] CK_RV findObjects(Session &session, CK_OBJECT_HANDLE *handles, CK_ULONG most,
                                CK_ULONG *count);

// The refusal of what would change an object, if there is one.
[[nodiscard]] CK_RV refuseChange(Driver &driver, CK_OBJECT_HANDLE handle);

}  // namespace driver
