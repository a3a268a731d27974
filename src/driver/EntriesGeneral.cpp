// The functions of PKCS #11 v2.40 about the module, its slot and its sessions.

#include "driver/FunctionList.hpp"
#include "driver/Slot.hpp"
#include "driver/WithoutThrowing.hpp"

using driver::Driver;
using driver::Process;
using driver::Session;
using driver::withoutThrowing;

extern "C" {

CK_RV C_Initialize(void *arguments) {
  return withoutThrowing("C_Initialize", [&] {
    return driver::areInitializeArgumentsGood(static_cast<const CK_C_INITIALIZE_ARGS *>(arguments))
               ? Process::current().initialize()
               : CK_RV{CKR_ARGUMENTS_BAD};
  });
}

CK_RV C_Finalize(void *reserved) {
  return withoutThrowing("C_Finalize", [&] {
    return reserved == nullptr ? Process::current().finalize() : CK_RV{CKR_ARGUMENTS_BAD};
  });
}

CK_RV C_GetInfo(CK_INFO *info) {
  return withoutThrowing("C_GetInfo", [&](Driver & /*driver*/) { return driver::getInfo(info); });
}

CK_RV C_GetSlotList(CK_BBOOL tokenPresent, CK_SLOT_ID *list, CK_ULONG *count) {
  return withoutThrowing("C_GetSlotList", [&](Driver &driver) {
    return driver::getSlotList(driver, tokenPresent, list, count);
  });
}

CK_RV C_GetSlotInfo(CK_SLOT_ID slot, CK_SLOT_INFO *info) {
  return withoutThrowing("C_GetSlotInfo",
                         [&](Driver &driver) { return driver::getSlotInfo(driver, slot, info); });
}

CK_RV C_GetTokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO *info) {
  return withoutThrowing("C_GetTokenInfo",
                         [&](Driver &driver) { return driver::getTokenInfo(driver, slot, info); });
}

CK_RV C_WaitForSlotEvent(CK_FLAGS flags, CK_SLOT_ID *slot, void * /*reserved*/) {
  return withoutThrowing("C_WaitForSlotEvent", [&](Driver &driver) {
    return driver::waitForSlotEvent(driver, flags, slot);
  });
}

CK_RV C_GetMechanismList(CK_SLOT_ID slot, CK_MECHANISM_TYPE *list, CK_ULONG *count) {
  return withoutThrowing("C_GetMechanismList", [&](Driver & /*driver*/) {
    return driver::getMechanismList(slot, list, count);
  });
}

CK_RV C_GetMechanismInfo(CK_SLOT_ID slot, CK_MECHANISM_TYPE type, CK_MECHANISM_INFO *info) {
  return withoutThrowing("C_GetMechanismInfo", [&](Driver & /*driver*/) {
    return driver::getMechanismInfo(slot, type, info);
  });
}

CK_RV C_InitToken(CK_SLOT_ID slot, CK_BYTE * /*pin*/, CK_ULONG /*pinLength*/, CK_BYTE * /*label*/) {
  return withoutThrowing("C_InitToken", [&](Driver & /*driver*/) {
    return slot == driver::kSlot ? CK_RV{CKR_TOKEN_WRITE_PROTECTED} : CK_RV{CKR_SLOT_ID_INVALID};
  });
}

CK_RV C_InitPIN(CK_SESSION_HANDLE session, CK_BYTE * /*pin*/, CK_ULONG /*length*/) {
  return driver::refuse("C_InitPIN", session, CKR_TOKEN_WRITE_PROTECTED);
}

CK_RV C_SetPIN(CK_SESSION_HANDLE session, CK_BYTE * /*oldPin*/, CK_ULONG /*oldLength*/,
               CK_BYTE * /*newPin*/, CK_ULONG /*newLength*/) {
  return driver::refuse("C_SetPIN", session, CKR_TOKEN_WRITE_PROTECTED);
}

CK_RV C_OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, void * /*application*/, CK_NOTIFY /*notify*/,
                    CK_SESSION_HANDLE *session) {
  return withoutThrowing("C_OpenSession", [&](Driver &driver) {
    return driver::openSession(driver, slot, flags, session);
  });
}

CK_RV C_CloseSession(CK_SESSION_HANDLE session) {
  return withoutThrowing("C_CloseSession",
                         [&](Driver &driver) { return driver.closeSession(session); });
}

CK_RV C_CloseAllSessions(CK_SLOT_ID slot) {
  return withoutThrowing("C_CloseAllSessions",
                         [&](Driver &driver) { return driver::closeAllSessions(driver, slot); });
}

CK_RV C_GetSessionInfo(CK_SESSION_HANDLE handle, CK_SESSION_INFO *info) {
  return withoutThrowing("C_GetSessionInfo", handle, [&](Driver &driver, Session &session) {
    return driver::getSessionInfo(driver, session, info);
  });
}

CK_RV C_GetOperationState(CK_SESSION_HANDLE session, CK_BYTE * /*state*/, CK_ULONG * /*length*/) {
  return driver::refuse("C_GetOperationState", session, CKR_FUNCTION_NOT_SUPPORTED);
}

CK_RV C_SetOperationState(CK_SESSION_HANDLE session, CK_BYTE * /*state*/, CK_ULONG /*length*/,
                          CK_OBJECT_HANDLE /*encryptionKey*/,
                          CK_OBJECT_HANDLE /*authenticationKey*/) {
  return driver::refuse("C_SetOperationState", session, CKR_FUNCTION_NOT_SUPPORTED);
}

CK_RV C_Login(CK_SESSION_HANDLE session, CK_USER_TYPE user, CK_BYTE *pin, CK_ULONG length) {
  return withoutThrowing("C_Login", session, [&](Driver &driver, Session & /*session*/) {
    return driver::login(driver, user, pin, length);
  });
}

CK_RV C_Logout(CK_SESSION_HANDLE session) {
  return withoutThrowing("C_Logout", session, [](Driver &driver, Session & /*session*/) {
    return driver.token.logOut();
  });
}

CK_RV C_GetFunctionStatus(CK_SESSION_HANDLE session) {
  return driver::refuse("C_GetFunctionStatus", session, CKR_FUNCTION_NOT_PARALLEL);
}

CK_RV C_CancelFunction(CK_SESSION_HANDLE session) {
  return driver::refuse("C_CancelFunction", session, CKR_FUNCTION_NOT_PARALLEL);
}

}  // extern "C"
