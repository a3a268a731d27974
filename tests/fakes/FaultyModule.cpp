// A PKCS #11 module: the one in software, of which the call that the environment names in
// KEYFERRY_FAULT fails, or whose tokens all say that one more wrong PIN would lock them.

#include <dlfcn.h>
#include <p11-kit/pkcs11.h>

#include "fakes/SoftTokens.hpp"

namespace {

CK_FUNCTION_LIST *original() {
  CK_FUNCTION_LIST *list = nullptr;
  void *const library = dlopen(fakes::kSoftTokenModule, RTLD_NOW | RTLD_LOCAL);
  reinterpret_cast<CK_C_GetFunctionList>(dlsym(library, "C_GetFunctionList"))(&list);
  return list;
}

CK_RV atItsLastTry(CK_SLOT_ID slot, CK_TOKEN_INFO *info) {
  const CK_RV result = original()->C_GetTokenInfo(slot, info);
  info->flags |= CKF_USER_PIN_FINAL_TRY;
  return result;
}

template <typename... Arguments>
void fail(CK_RV (*&call)(Arguments...)) {
  call = [](Arguments...) -> CK_RV { return CKR_DEVICE_ERROR; };
}

// By the names of the calls that can fail.
const std::map<std::string, void (*)(CK_FUNCTION_LIST &)> kFaults = {
    {"last try", [](auto &list) { list.C_GetTokenInfo = atItsLastTry; }},
    {"C_Initialize", [](auto &list) { fail(list.C_Initialize); }},
    {"C_GetSlotList", [](auto &list) { fail(list.C_GetSlotList); }},
    {"C_GetTokenInfo", [](auto &list) { fail(list.C_GetTokenInfo); }},
    {"C_OpenSession", [](auto &list) { fail(list.C_OpenSession); }},
    {"C_FindObjectsInit", [](auto &list) { fail(list.C_FindObjectsInit); }},
    {"C_FindObjects", [](auto &list) { fail(list.C_FindObjects); }},
    {"C_GetAttributeValue", [](auto &list) { fail(list.C_GetAttributeValue); }}};

}  // namespace

extern "C" CK_RV C_GetFunctionList(CK_FUNCTION_LIST **list) {
  static CK_FUNCTION_LIST functions;
  functions = *original();
  kFaults.at(getenv("KEYFERRY_FAULT"))(functions);
  *list = &functions;
  return CKR_OK;
}
