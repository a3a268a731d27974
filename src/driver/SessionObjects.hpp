#pragma once

#include <map>
#include <mutex>
#include <vector>

#include "driver/Object.hpp"

namespace driver {

// Objects that were derived in a session and end with it; all sessions see them. For any thread.
class SessionObjects {
 public:
  void add(CK_SESSION_HANDLE owner, ObjectPointer object);

  // Null if there is none with this handle.
  [[nodiscard]] ObjectPointer find(CK_OBJECT_HANDLE handle);
  [[nodiscard]] std::vector<ObjectPointer> all();

  // False if there is none with this handle.
  [[nodiscard]] bool remove(CK_OBJECT_HANDLE handle);
  void removeOf(CK_SESSION_HANDLE owner);
  void removeAll();

 private:
  struct Entry {
    CK_SESSION_HANDLE owner;
    ObjectPointer object;
  };

  std::mutex mutex_;
  std::map<CK_OBJECT_HANDLE, Entry> entries_;
};

}  // namespace driver
