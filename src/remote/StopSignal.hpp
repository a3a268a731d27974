#pragma once

#include "base/Descriptor.hpp"

namespace remote {

// SIGINT, SIGTERM and SIGHUP as something to wait on, instead of the end of the process. Made
// before the first thread.
class StopSignal {
 public:
  StopSignal();

  // Readable when a signal has come, until consume().
  [[nodiscard]] int descriptor() const { return signals_.get(); }
  void consume() const;

 private:
  base::Descriptor signals_;
};

}  // namespace remote
