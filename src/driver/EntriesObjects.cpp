// The functions of PKCS #11 v2.40 about objects and the keys among them.

#include "driver/Deriving.hpp"
#include "driver/ObjectCalls.hpp"
#include "driver/OperationCalls.hpp"
#include "driver/WithoutThrowing.hpp"

using driver::Driver;
using driver::Session;
using driver::withoutThrowing;

extern "C" {

CK_RV C_CreateObject(CK_SESSION_HANDLE handle, CK_ATTRIBUTE * /*attributes*/, CK_ULONG /*count*/,
                     CK_OBJECT_HANDLE * /*object*/) {
  return driver::refuse("C_CreateObject", handle, CKR_TOKEN_WRITE_PROTECTED);
}

CK_RV C_CopyObject(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE object, CK_ATTRIBUTE * /*attributes*/,
                   CK_ULONG /*count*/, CK_OBJECT_HANDLE * /*copy*/) {
  return withoutThrowing("C_CopyObject", handle, [&](Driver &driver, Session & /*session*/) {
    return driver::refuseChange(driver, object);
  });
}

CK_RV C_DestroyObject(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE object) {
  return withoutThrowing("C_DestroyObject", handle, [&](Driver &driver, Session & /*session*/) {
    return driver::destroyObject(driver, object);
  });
}

CK_RV C_GetObjectSize(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE object, CK_ULONG *size) {
  return withoutThrowing("C_GetObjectSize", handle, [&](Driver &driver, Session & /*session*/) {
    return driver::getObjectSize(driver, object, size);
  });
}

CK_RV C_GetAttributeValue(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE object,
                          CK_ATTRIBUTE *attributes, CK_ULONG count) {
  return withoutThrowing("C_GetAttributeValue", handle, [&](Driver &driver, Session & /*session*/) {
    return driver::getAttributeValue(driver, object, attributes, count);
  });
}

CK_RV C_SetAttributeValue(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE object,
                          CK_ATTRIBUTE * /*attributes*/, CK_ULONG /*count*/) {
  return withoutThrowing("C_SetAttributeValue", handle, [&](Driver &driver, Session & /*session*/) {
    return driver::refuseChange(driver, object);
  });
}

CK_RV C_FindObjectsInit(CK_SESSION_HANDLE handle, CK_ATTRIBUTE *attributes, CK_ULONG count) {
  return withoutThrowing("C_FindObjectsInit", handle, [&](Driver &driver, Session &session) {
    return driver::findObjectsInit(driver, session, attributes, count);
  });
}

CK_RV C_FindObjects(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE *objects, CK_ULONG most,
                    CK_ULONG *count) {
  return withoutThrowing("C_FindObjects", handle, [&](Driver & /*driver*/, Session &session) {
    return driver::findObjects(session, objects, most, count);
  });
}

CK_RV C_FindObjectsFinal(CK_SESSION_HANDLE handle) {
  return withoutThrowing("C_FindObjectsFinal", handle, [](Driver & /*driver*/, Session &session) {
    session.search.end();
    return CK_RV{CKR_OK};
  });
}

CK_RV C_GenerateKey(CK_SESSION_HANDLE handle, CK_MECHANISM * /*mechanism*/,
                    CK_ATTRIBUTE * /*attributes*/, CK_ULONG /*count*/, CK_OBJECT_HANDLE * /*key*/) {
  return driver::refuse("C_GenerateKey", handle, CKR_FUNCTION_NOT_SUPPORTED);
}

CK_RV C_GenerateKeyPair(CK_SESSION_HANDLE handle, CK_MECHANISM * /*mechanism*/,
                        CK_ATTRIBUTE * /*publicAttributes*/, CK_ULONG /*publicCount*/,
                        CK_ATTRIBUTE * /*privateAttributes*/, CK_ULONG /*privateCount*/,
                        CK_OBJECT_HANDLE * /*publicKey*/, CK_OBJECT_HANDLE * /*privateKey*/) {
  return driver::refuse("C_GenerateKeyPair", handle, CKR_FUNCTION_NOT_SUPPORTED);
}

CK_RV C_WrapKey(CK_SESSION_HANDLE handle, CK_MECHANISM * /*mechanism*/,
                CK_OBJECT_HANDLE /*wrappingKey*/, CK_OBJECT_HANDLE /*key*/, CK_BYTE * /*wrapped*/,
                CK_ULONG * /*length*/) {
  return driver::refuse("C_WrapKey", handle, CKR_FUNCTION_NOT_SUPPORTED);
}

CK_RV C_UnwrapKey(CK_SESSION_HANDLE handle, CK_MECHANISM * /*mechanism*/,
                  CK_OBJECT_HANDLE /*unwrappingKey*/, CK_BYTE * /*wrapped*/, CK_ULONG /*length*/,
                  CK_ATTRIBUTE * /*attributes*/, CK_ULONG /*count*/, CK_OBJECT_HANDLE * /*key*/) {
  return driver::refuse("C_UnwrapKey", handle, CKR_FUNCTION_NOT_SUPPORTED);
}

CK_RV C_DeriveKey(CK_SESSION_HANDLE handle, CK_MECHANISM *mechanism, CK_OBJECT_HANDLE baseKey,
                  CK_ATTRIBUTE *attributes, CK_ULONG count, CK_OBJECT_HANDLE *key) {
  return withoutThrowing("C_DeriveKey", handle, [&](Driver &driver, Session &session) {
    return driver::derive(driver, session, mechanism, baseKey,
                          {attributes, attributes == nullptr ? 0 : count}, key);
  });
}

}  // extern "C"
