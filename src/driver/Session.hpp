#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "crypto/RunningDigest.hpp"
#include "driver/EncryptDecrypt.hpp"
#include "driver/Object.hpp"
#include "driver/Operation.hpp"
#include "driver/Pkcs11.hpp"
#include "driver/SignVerify.hpp"

namespace driver {

// Session objects: derived keys that are deleted with their session. Visible in all sessions.
// Thread-safe.
class SessionObjects {
 public:
  void add(CK_SESSION_HANDLE owner, ObjectPointer object);

  // Null if there is no such object.
  [[nodiscard]] ObjectPointer find(CK_OBJECT_HANDLE handle);
  [[nodiscard]] std::vector<ObjectPointer> all();

  // False if there is no such object.
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

// The results of a search, as of its start, and how many have been returned.
struct Search {
  std::vector<CK_OBJECT_HANDLE> found;
  std::size_t given = 0;
};

// A PKCS #11 session, with at most one active operation of each kind.
struct Session {
  CK_SESSION_HANDLE handle = CK_INVALID_HANDLE;
  bool isReadWrite = false;
  ActiveOperation<Search> search;
  ActiveOperation<crypto::RunningDigest> digesting;
  ActiveOperation<SignOperation> signing;
  ActiveOperation<VerifyOperation> verifying;
  ActiveOperation<EncryptOperation> encrypting;
  ActiveOperation<DecryptOperation> decrypting;
};

// The open sessions. Thread-safe.
class Sessions {
 public:
  explicit Sessions(HandleCounter &handles) : handles_(handles) {}

  [[nodiscard]] CK_SESSION_HANDLE open(bool isReadWrite);

  // Null if there is no such session.
  [[nodiscard]] std::shared_ptr<Session> find(CK_SESSION_HANDLE handle);

  // False if there is no such session. Running calls in the session continue.
  [[nodiscard]] bool close(CK_SESSION_HANDLE handle);
  void closeAll();

  [[nodiscard]] CK_ULONG count();
  [[nodiscard]] CK_ULONG readWriteCount();

 private:
  HandleCounter &handles_;
  std::mutex mutex_;
  std::map<CK_SESSION_HANDLE, std::shared_ptr<Session>> open_;
};

}  // namespace driver
