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

// The driver between a C_Initialize and its C_Finalize. Calls that are at work keep it alive.
class Driver {
 public:
  explicit Driver(CardFactory factory) : token(factory, handles), sessions(handles) {}

  // The object with this handle, of a session or on the card. CKR_DEVICE_REMOVED while the card is
  // away, CKR_OBJECT_HANDLE_INVALID if there is none that the program may see.
  [[nodiscard]] CK_RV findObject(CK_OBJECT_HANDLE handle, ObjectPointer &object);

  // All objects that the program may see now. CKR_DEVICE_REMOVED while the card is away.
  [[nodiscard]] CK_RV visibleObjects(std::vector<ObjectPointer> &objects);

  // Closes a session, or all, with what belongs to it; the user is logged out with the last.
  [[nodiscard]] CK_RV closeSession(CK_SESSION_HANDLE handle);
  void closeAllSessions();

  // Keeps an object that ends with the session. CKR_SESSION_CLOSED if that has ended already.
  [[nodiscard]] CK_RV keep(const Session &session, Object object);

  // See Token. CKR_SESSION_CLOSED, and no PIN is kept, if no session is open any more.
  [[nodiscard]] CK_RV logIn(SecretText pin);

  // Waits on the calling thread until a card came or went since the last such event, or since the
  // program first looked at the token, or until the driver is stopped:
  // CKR_CRYPTOKI_NOT_INITIALIZED. Without `mayBlock` CKR_NO_EVENT where none is there. Each look at
  // the card takes as long as Card::isPresent.
  [[nodiscard]] CK_RV waitForSlotEvent(bool mayBlock);

  // Ends all waiting above. C_Finalize.
  void stop();

  HandleCounter handles;
  CardToken token;
  Sessions sessions;
  SessionObjects sessionObjects;

 private:
  std::mutex mutex_;
  std::condition_variable stopping_;
  bool isStopped_ = false;
  std::optional<std::uint64_t> seenGeneration_;  // of the last event; nothing before the first wait
};

}  // namespace driver
