#include "driver/Driver.hpp"

#include <algorithm>
#include <chrono>
#include <utility>

namespace driver {

CK_RV Driver::findObject(CK_OBJECT_HANDLE handle, ObjectPointer &object) {
  object = sessionObjects.find(handle);
  if (object) {
    return CKR_OK;
  }
  const auto card = token.objects();
  if (!card) {
    return CKR_DEVICE_REMOVED;
  }
  const auto found = card->byHandle.find(handle);
  if (found == card->byHandle.end() || !token.isAccessible(*found->second)) {
    return CKR_OBJECT_HANDLE_INVALID;
  }
  object = found->second;
  return CKR_OK;
}

CK_RV Driver::visibleObjects(std::vector<ObjectPointer> &objects) {
  const auto card = token.objects();
  if (!card) {
    return CKR_DEVICE_REMOVED;
  }
  objects = sessionObjects.all();
  std::ranges::copy_if(card->objects, std::back_inserter(objects),
                       [&](const ObjectPointer &object) { return token.isAccessible(*object); });
  return CKR_OK;
}

CK_RV Driver::closeSession(CK_SESSION_HANDLE handle) {
  if (!sessions.close(handle)) {
    return CKR_SESSION_HANDLE_INVALID;
  }
  sessionObjects.removeOf(handle);
  if (sessions.count() == 0) {
    static_cast<void>(token.logOut());
  }
  return CKR_OK;
}

void Driver::closeAllSessions() {
  sessions.closeAll();
  sessionObjects.removeAll();
  static_cast<void>(token.logOut());
}

CK_RV Driver::keep(const Session &session, Object object) {
  sessionObjects.add(session.handle, std::make_shared<const Object>(std::move(object)));
  // another thread may have closed the session during the request
  if (!sessions.find(session.handle)) {
    sessionObjects.removeOf(session.handle);
    return CKR_SESSION_CLOSED;
  }
  return CKR_OK;
}

CK_RV Driver::logIn(SecretText pin) {
  const CK_RV result = token.logIn(std::move(pin));
  // other threads may have closed all sessions while the card was read
  if (sessions.count() == 0) {
    static_cast<void>(token.logOut());
    return CKR_SESSION_CLOSED;
  }
  return result;
}

CK_RV Driver::waitForSlotEvent(bool mayBlock) {
  constexpr std::chrono::milliseconds kPoll{100};
  const std::uint64_t first = token.firstGeneration();
  while (true) {
    // polls the daemon if the marker is hidden
    static_cast<void>(token.isPresent());
    const std::uint64_t generation = token.generation();
    std::unique_lock lock(mutex_);
    if (isStopped_) {
      return CKR_CRYPTOKI_NOT_INITIALIZED;
    }
    const std::uint64_t seen = std::exchange(seenGeneration_, generation).value_or(first);
    if (generation != seen) {
      return CKR_OK;
    }
    if (!mayBlock) {
      return CKR_NO_EVENT;
    }
    stopping_.wait_for(lock, kPoll);
  }
}

void Driver::stop() {
  const std::lock_guard lock(mutex_);
  isStopped_ = true;
  stopping_.notify_all();
}

}  // namespace driver
