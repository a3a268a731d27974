#include "driver/Session.hpp"

#include <algorithm>

namespace driver {

void SessionObjects::add(CK_SESSION_HANDLE owner, ObjectPointer object) {
  const std::lock_guard lock(mutex_);
  const CK_OBJECT_HANDLE handle = object->handle;
  entries_.insert_or_assign(handle, Entry{owner, std::move(object)});
}

ObjectPointer SessionObjects::find(CK_OBJECT_HANDLE handle) {
  const std::lock_guard lock(mutex_);
  const auto found = entries_.find(handle);
  return found == entries_.end() ? nullptr : found->second.object;
}

std::vector<ObjectPointer> SessionObjects::all() {
  const std::lock_guard lock(mutex_);
  std::vector<ObjectPointer> objects;
  objects.reserve(entries_.size());
  for (const auto &[handle, entry] : entries_) {
    objects.push_back(entry.object);
  }
  return objects;
}

bool SessionObjects::remove(CK_OBJECT_HANDLE handle) {
  const std::lock_guard lock(mutex_);
  return entries_.erase(handle) == 1;
}

void SessionObjects::removeOf(CK_SESSION_HANDLE owner) {
  const std::lock_guard lock(mutex_);
  std::erase_if(entries_, [&](const auto &entry) { return entry.second.owner == owner; });
}

void SessionObjects::removeAll() {
  const std::lock_guard lock(mutex_);
  entries_.clear();
}

CK_SESSION_HANDLE Sessions::open(bool isReadWrite) {
  auto session = std::make_shared<Session>();
  session->handle = handles_.next();
  session->isReadWrite = isReadWrite;
  const std::lock_guard lock(mutex_);
  open_.emplace(session->handle, session);
  return session->handle;
}

std::shared_ptr<Session> Sessions::find(CK_SESSION_HANDLE handle) {
  const std::lock_guard lock(mutex_);
  const auto found = open_.find(handle);
  return found == open_.end() ? nullptr : found->second;
}

bool Sessions::close(CK_SESSION_HANDLE handle) {
  const std::lock_guard lock(mutex_);
  return open_.erase(handle) == 1;
}

void Sessions::closeAll() {
  const std::lock_guard lock(mutex_);
  open_.clear();
}

CK_ULONG Sessions::count() {
  const std::lock_guard lock(mutex_);
  return open_.size();
}

CK_ULONG Sessions::readWriteCount() {
  const std::lock_guard lock(mutex_);
  return static_cast<CK_ULONG>(
      std::ranges::count_if(open_, [](const auto &entry) { return entry.second->isReadWrite; }));
}

}  // namespace driver
