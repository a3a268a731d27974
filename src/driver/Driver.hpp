#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

#include "driver/CardToken.hpp"
#include "driver/Object.hpp"
#include "driver/Pkcs11.hpp"
#include "driver/Session.hpp"

namespace driver {

// The state between C_Initialize and C_Finalize. Running calls keep it alive.
class Driver {
 public:
  explicit Driver(CardFactory factory) : token(factory, handles), sessions(handles) {}

  // Finds an object of a session or the card. CKR_DEVICE_REMOVED if there is no card,
  // CKR_OBJECT_HANDLE_INVALID if the program may see no object with this handle.
  [[nodiscard]] CK_RV findObject(CK_OBJECT_HANDLE handle, ObjectPointer &object);

  // All objects that the program may see. CKR_DEVICE_REMOVED if there is no card.
  [[nodiscard]] CK_RV visibleObjects(std::vector<ObjectPointer> &objects);

  // Closes one session or all, with their objects. Closing the last one logs the user out.
  [[nodiscard]] CK_RV closeSession(CK_SESSION_HANDLE handle);
  void closeAllSessions();

  // Adds a session object. CKR_SESSION_CLOSED if the session has been closed.
  [[nodiscard]] CK_RV keep(const Session &session, Object object);

  // See CardToken. CKR_SESSION_CLOSED, with no PIN kept, if no session is open.
  [[nodiscard]] CK_RV logIn(SecretText pin);

  // Blocks until a card was inserted or removed since the last event (or since the program's first
  // use of the token). CKR_CRYPTOKI_NOT_INITIALIZED once stop() was called; without `mayBlock`,
  // CKR_NO_EVENT if there is no event. Each check takes as long as Card::isPresent.
  [[nodiscard]] CK_RV waitForSlotEvent(bool mayBlock);

  // Called by C_Finalize: ends all calls of waitForSlotEvent.
  void stop();

  HandleCounter handles;
  CardToken token;
  Sessions sessions;
  SessionObjects sessionObjects;

 private:
  std::mutex mutex_;
  std::condition_variable stopping_;
  bool isStopped_ = false;
  std::optional<std::uint64_t> seenGeneration_;  // at the last event; nothing before the first wait
};

}  // namespace driver
