#pragma once

#include "base/Descriptor.hpp"

namespace remote {

// Turns SIGINT, SIGTERM and SIGHUP into a descriptor that can be polled. Must be made before the
// first thread.
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
