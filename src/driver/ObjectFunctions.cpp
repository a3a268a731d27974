// The object and key management functions of PKCS #11 v2.40.

#include <algorithm>
#include <span>

#include "driver/Driver.hpp"
#include "driver/EntryPointGuard.hpp"
#include "driver/KeyDerivation.hpp"
#include "driver/Pkcs11.hpp"

namespace driver {
namespace {

CK_RV getAttributeValue(Driver &driver, CK_OBJECT_HANDLE handle, CK_ATTRIBUTE *wanted,
                        CK_ULONG count) {
  if (wanted == nullptr && count > 0) {
    return CKR_ARGUMENTS_BAD;
  }
  ObjectPointer object;
  const CK_RV found = driver.findObject(handle, object);
  return found == CKR_OK ? fill({wanted, count}, *object) : found;
}

CK_RV getObjectSize(Driver &driver, CK_OBJECT_HANDLE handle, CK_ULONG *size) {
  if (size == nullptr) {
    return CKR_ARGUMENTS_BAD;
  }
  ObjectPointer object;
  const CK_RV found = driver.findObject(handle, object);
  *size = CK_UNAVAILABLE_INFORMATION;
  return found;
}

// Refuses to change an object; reports an invalid handle as such.
CK_RV refuseChange(Driver &driver, CK_OBJECT_HANDLE handle) {
  ObjectPointer object;
  const CK_RV found = driver.findObject(handle, object);
  return found == CKR_OK ? CK_RV{CKR_TOKEN_WRITE_PROTECTED} : found;
}

CK_RV destroyObject(Driver &driver, CK_OBJECT_HANDLE handle) {
  return driver.sessionObjects.remove(handle) ? CK_RV{CKR_OK} : refuseChange(driver, handle);
}

CK_RV findObjectsInit(Driver &driver, Session &session, const CK_ATTRIBUTE *wanted,
                      CK_ULONG count) {
  const std::span<const CK_ATTRIBUTE> attributes(wanted, wanted == nullptr ? 0 : count);
  if (attributes.size() != count || !isWellFormed(attributes)) {
    return CKR_ARGUMENTS_BAD;
  }
  if (session.search.isActive()) {
    return CKR_OPERATION_ACTIVE;
  }
  std::vector<ObjectPointer> objects;
  if (const CK_RV result = driver.visibleObjects(objects); result != CKR_OK) {
    return result;
  }
  auto search = std::make_unique<Search>();
  for (const ObjectPointer &object : objects) {
    if (fits(*object, attributes)) {
      search->found.push_back(object->handle);
    }
  }
  return session.search.begin(std::move(search));
}

CK_RV findObjects(Session &session, CK_OBJECT_HANDLE *handles, CK_ULONG most, CK_ULONG *count) {
  return session.search.proceed(PartMode::multiple, [&](Search &search) -> Progress {
    if (count == nullptr || (handles == nullptr && most > 0)) {
      return {CKR_ARGUMENTS_BAD};
    }
    const std::size_t number = std::min<std::size_t>(most, search.found.size() - search.given);
    std::ranges::copy(std::span(search.found).subspan(search.given, number), handles);
    search.given += number;
    *count = number;
    return {CKR_OK, /*isOver=*/false};
  });
}

}  // namespace
}  // namespace driver

using driver::Driver;
using driver::guardEntryPoint;
using driver::Session;

extern "C" {

CK_RV C_CreateObject(CK_SESSION_HANDLE handle, CK_ATTRIBUTE * /*attributes*/, CK_ULONG /*count*/,
                     CK_OBJECT_HANDLE * /*object*/) {
  return driver::refuse("C_CreateObject", handle, CKR_TOKEN_WRITE_PROTECTED);
}

CK_RV C_CopyObject(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE object, CK_ATTRIBUTE * /*attributes*/,
                   CK_ULONG /*count*/, CK_OBJECT_HANDLE * /*copy*/) {
  return guardEntryPoint("C_CopyObject", handle, [&](Driver &driver, Session & /*session*/) {
    return driver::refuseChange(driver, object);
  });
}

CK_RV C_DestroyObject(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE object) {
  return guardEntryPoint("C_DestroyObject", handle, [&](Driver &driver, Session & /*session*/) {
    return driver::destroyObject(driver, object);
  });
}

CK_RV C_GetObjectSize(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE object, CK_ULONG *size) {
  return guardEntryPoint("C_GetObjectSize", handle, [&](Driver &driver, Session & /*session*/) {
    return driver::getObjectSize(driver, object, size);
  });
}

CK_RV C_GetAttributeValue(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE object,
                          CK_ATTRIBUTE *attributes, CK_ULONG count) {
  return guardEntryPoint("C_GetAttributeValue", handle, [&](Driver &driver, Session & /*session*/) {
    return driver::getAttributeValue(driver, object, attributes, count);
  });
}

CK_RV C_SetAttributeValue(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE object,
                          CK_ATTRIBUTE * /*attributes*/, CK_ULONG /*count*/) {
  return guardEntryPoint("C_SetAttributeValue", handle, [&](Driver &driver, Session & /*session*/) {
    return driver::refuseChange(driver, object);
  });
}

CK_RV C_FindObjectsInit(CK_SESSION_HANDLE handle, CK_ATTRIBUTE *attributes, CK_ULONG count) {
  return guardEntryPoint("C_FindObjectsInit", handle, [&](Driver &driver, Session &session) {
    return driver::findObjectsInit(driver, session, attributes, count);
  });
}

CK_RV C_FindObjects(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE *objects, CK_ULONG most,
                    CK_ULONG *count) {
  return guardEntryPoint("C_FindObjects", handle, [&](Driver & /*driver*/, Session &session) {
    return driver::findObjects(session, objects, most, count);
  });
}

CK_RV C_FindObjectsFinal(CK_SESSION_HANDLE handle) {
  return guardEntryPoint("C_FindObjectsFinal", handle, [](Driver & /*driver*/, Session &session) {
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
  return guardEntryPoint("C_DeriveKey", handle, [&](Driver &driver, Session &session) {
    return driver::deriveKey(driver, session, mechanism, baseKey,
                             {attributes, attributes == nullptr ? 0 : count}, key);
  });
}

}  // extern "C"
