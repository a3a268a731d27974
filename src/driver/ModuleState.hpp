#pragma once

#include <sys/types.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include "driver/Driver.hpp"
#include "driver/Pkcs11.hpp"

namespace driver {

// What the module keeps in a process. It is never destroyed: programs call the module from exit
// handlers, and some from threads that still run then.
class ModuleState {
 public:
  explicit ModuleState(pid_t identifier) : identifier_(identifier) {}

  // The one of this process. In a process that came from fork it is a fresh one: what was inherited
  // is let go of without a word and without a lock, which a thread that is not here may hold.
  [[nodiscard]] static ModuleState &current();

  // C_Initialize and C_Finalize.
  [[nodiscard]] CK_RV initialize();
  [[nodiscard]] CK_RV finalize();

  // Null unless the module is initialised.
  [[nodiscard]] std::shared_ptr<Driver> driver();

  // What makes the card in lives that begin after this, makeCard unless a test brings its own.
  static void useCardFactory(CardFactory factory);

 private:
  void abandon();

  pid_t identifier_;
  std::mutex mutex_;
  std::shared_ptr<Driver> driver_;
  std::vector<std::shared_ptr<Driver>>
      unreleasable_;                      // ended after the library they hold things of
  std::atomic<Driver *> shown_{nullptr};  // the same, to be found without the lock after fork
};

}  // namespace driver
