#pragma once

#include <sys/types.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include "driver/Driver.hpp"
#include "driver/Pkcs11.hpp"

namespace driver {

// The state of the module in this process. Never destroyed: programs call the module from exit
// handlers and from threads that still run then.
class ModuleState {
 public:
  explicit ModuleState(pid_t identifier) : identifier_(identifier) {}

  // The state of this process. The child of a fork gets a new one; the inherited one is abandoned
  // without a lock, since a thread that does not exist in the child may hold it.
  [[nodiscard]] static ModuleState &current();

  // C_Initialize and C_Finalize.
  [[nodiscard]] CK_RV initialize();
  [[nodiscard]] CK_RV finalize();

  // Null unless the module is initialized.
  [[nodiscard]] std::shared_ptr<Driver> driver();

  // Sets the card factory for later C_Initialize calls: makeCard, or a test's own.
  static void useCardFactory(CardFactory factory);

 private:
  void abandon();

  pid_t identifier_;
  std::mutex mutex_;
  std::shared_ptr<Driver> driver_;
  std::atomic<Driver *> inheritable_{nullptr};  // the same driver; read without a lock after a fork

  // Finalized after OpenSSL was shut down: their OpenSSL objects can't be freed any more.
  std::vector<std::shared_ptr<Driver>> unreleasable_;
};

}  // namespace driver
