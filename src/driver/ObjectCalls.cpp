#include "driver/ObjectCalls.hpp"

#include <algorithm>
#include <span>

namespace driver {

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

CK_RV destroyObject(Driver &driver, CK_OBJECT_HANDLE handle) {
  return driver.sessionObjects.remove(handle) ? CK_RV{CKR_OK} : refuseChange(driver, handle);
}

CK_RV refuseChange(Driver &driver, CK_OBJECT_HANDLE handle) {
  ObjectPointer object;
  const CK_RV found = driver.findObject(handle, object);
  return found == CKR_OK ? CK_RV{CKR_TOKEN_WRITE_PROTECTED} : found;
}

CK_RV findObjectsInit(Driver &driver, Session &session, const CK_ATTRIBUTE *wanted,
                      CK_ULONG count) {
  const std::span<const CK_ATTRIBUTE> attributes(wanted, wanted == nullptr ? 0 : count);
  if (attributes.size() != count || !isWhole(attributes)) {
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
  return session.search.proceed(Input::inParts, [&](Search &search) -> Progress {
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

}  // namespace driver
