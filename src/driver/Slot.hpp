#pragma once

#include "driver/Driver.hpp"
#include "driver/Pkcs11.hpp"

namespace driver {

// The one slot, which is always there, and what it says of itself and of the token in it. Each is
// the function of the same name in PKCS #11 v2.40, chapter 5.4 to 5.6.
inline constexpr CK_SLOT_ID kSlot = 0;

// What C_Initialize may be given: nothing, or either all of the program's functions for locks or
// none (PKCS #11 v2.40, 5.4). They are not used, nor is anything else that stands there.
[[nodiscard]] bool areInitializeArgumentsGood(const CK_C_INITIALIZE_ARGS *arguments);

[[nodiscard]] CK_RV getInfo(CK_INFO *info);
[[nodiscard]] CK_RV getSlotList(Driver &driver, CK_BBOOL withToken, CK_SLOT_ID *list,
                                CK_ULONG *count);
[[nodiscard]] CK_RV getSlotInfo(Driver &driver, CK_SLOT_ID slot, CK_SLOT_INFO *info);
[[nodiscard]] CK_RV getTokenInfo(Driver &driver, CK_SLOT_ID slot, CK_TOKEN_INFO *info);
[[nodiscard]] CK_RV getMechanismList(CK_SLOT_ID slot, CK_MECHANISM_TYPE *list, CK_ULONG *count);
[[nodiscard]] CK_RV getMechanismInfo(CK_SLOT_ID slot, CK_MECHANISM_TYPE type,
                                     CK_MECHANISM_INFO *info);
[[nodiscard]] CK_RV waitForSlotEvent(Driver &driver, CK_FLAGS flags, CK_SLOT_ID *slot);
[[nodiscard]] CK_RV openSession(Driver &driver, CK_SLOT_ID slot, CK_FLAGS flags,
                                CK_SESSION_HANDLE *handle);
[[nodiscard]] CK_RV closeAllSessions(Driver &driver, CK_SLOT_ID slot);
[[nodiscard]] CK_RV getSessionInfo(Driver &driver, const Session &session, CK_SESSION_INFO *info);
[[nodiscard]] CK_RV login(Driver &driver, CK_USER_TYPE user, const CK_BYTE *pin, CK_ULONG length);

}  // namespace driver
