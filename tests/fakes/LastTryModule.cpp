// A PKCS #11 module: the one in software, whose tokens all say that one more wrong PIN would lock
// them.

#include <dlfcn.h>
#include <p11-kit/pkcs11.h>

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

CK_RV tokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO *info) {
  const CK_RV result = original()->C_GetTokenInfo(slot, info);
  info->flags |= CKF_USER_PIN_FINAL_TRY;
  return result;
}

}  // namespace

extern "C" CK_RV C_GetFunctionList(CK_FUNCTION_LIST **list) {
  static CK_FUNCTION_LIST functions = *original();
  functions.C_GetTokenInfo = tokenInfo;
  *list = &functions;
  return CKR_OK;
}
