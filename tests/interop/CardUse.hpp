#pragma once

#include <dlfcn.h>

#include "base/Bytes.hpp"
#include "driver/Pkcs11.hpp"

namespace system_tests {

// The functions of the driver as it is built; null if it can't be loaded.
inline CK_FUNCTION_LIST *loadDriver() {
  void *const module = ::dlopen(KEYFERRY_MODULE, RTLD_NOW | RTLD_LOCAL);
  CK_FUNCTION_LIST *functions = nullptr;
  if (module != nullptr) {
    (void)reinterpret_cast<CK_C_GetFunctionList>(::dlsym(module, "C_GetFunctionList"))(&functions);
  }
  return functions;
}

// A program's use of the RSA key on the card: one session, one handle, kept whatever happens.
class CardUse {
 public:
  explicit CardUse(CK_FUNCTION_LIST &functions) : f_(functions) {}

  // Opens the session and finds the key; false if there is none.
  [[nodiscard]] bool open() {
    CK_OBJECT_CLASS objectClass = CKO_PRIVATE_KEY;
    CK_KEY_TYPE type = CKK_RSA;
    CK_ATTRIBUTE wanted[] = {{CKA_CLASS, &objectClass, sizeof objectClass},
                             {CKA_KEY_TYPE, &type, sizeof type}};
    CK_ULONG count = 0;
    return f_.C_OpenSession(0, CKF_SERIAL_SESSION, nullptr, nullptr, &session_) == CKR_OK &&
           f_.C_FindObjectsInit(session_, wanted, 2) == CKR_OK &&
           f_.C_FindObjects(session_, &key_, 1, &count) == CKR_OK &&
           f_.C_FindObjectsFinal(session_) == CKR_OK && count == 1;
  }

  // Signs with PKCS #1 v1.5 padding, without a DigestInfo.
  [[nodiscard]] CK_RV sign(Bytes data, Bytes &signature) {
    CK_MECHANISM mechanism{CKM_RSA_PKCS, nullptr, 0};
    signature.assign(512, 0);
    CK_ULONG length = signature.size();
    CK_RV result = f_.C_SignInit(session_, &mechanism, key_);
    if (result == CKR_OK) {
      result = f_.C_Sign(session_, data.data(), data.size(), signature.data(), &length);
    }
    signature.resize(result == CKR_OK ? length : 0);
    return result;
  }

 private:
  CK_FUNCTION_LIST &f_;
  CK_SESSION_HANDLE session_ = CK_INVALID_HANDLE;
  CK_OBJECT_HANDLE key_ = CK_INVALID_HANDLE;
};

}  // namespace system_tests
