// A PKCS #11 module: the one in software, of which the call that the environment names in
// KEYFERRY_FAULT fails, or whose tokens all say that one more wrong PIN would lock them.

#include <dlfcn.h>
#include <p11-kit/pkcs11.h>

#include <string_view>

#include "fakes/SoftTokens.hpp"

namespace {

CK_FUNCTION_LIST *original() {
  static CK_FUNCTION_LIST *const functions = [] {
    CK_FUNCTION_LIST *list = nullptr;
    void *const library = dlopen(fakes::kSoftTokenModule, RTLD_NOW | RTLD_LOCAL);
    reinterpret_cast<CK_C_GetFunctionList>(dlsym(library, "C_GetFunctionList"))(&list);
    return list;
  }();
  return functions;
}

CK_RV atItsLastTry(CK_SLOT_ID slot, CK_TOKEN_INFO *info) {
  const CK_RV result = original()->C_GetTokenInfo(slot, info);
  info->flags |= CKF_USER_PIN_FINAL_TRY;
  return result;
}

template <typename... Arguments>
void breakIf(bool isMeant, CK_RV (*&call)(Arguments...)) {
  if (isMeant) {
    call = [](Arguments...) -> CK_RV { return CKR_DEVICE_ERROR; };
  }
}

}  // namespace

extern "C" CK_RV C_GetFunctionList(CK_FUNCTION_LIST **list) {
  static CK_FUNCTION_LIST functions;
  const std::string_view fault = getenv("KEYFERRY_FAULT");
  functions = *original();
  if (fault == "last try") {
    functions.C_GetTokenInfo = atItsLastTry;
  }
  breakIf(fault == "C_Initialize", functions.C_Initialize);
  breakIf(fault == "C_GetSlotList", functions.C_GetSlotList);
  breakIf(fault == "C_GetTokenInfo", functions.C_GetTokenInfo);
  breakIf(fault == "C_OpenSession", functions.C_OpenSession);
  breakIf(fault == "C_FindObjectsInit", functions.C_FindObjectsInit);
  breakIf(fault == "C_FindObjects", functions.C_FindObjects);
  breakIf(fault == "C_GetAttributeValue", functions.C_GetAttributeValue);
  *list = &functions;
  return CKR_OK;
}
