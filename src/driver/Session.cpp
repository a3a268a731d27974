#include "driver/Session.hpp"

#include <algorithm>

namespace driver {

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
