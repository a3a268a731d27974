#pragma once

#include <functional>
#include <mutex>
#include <vector>

#include "base/Descriptor.hpp"

namespace remote {

// Brings work from other threads to the loop's thread.
class LoopExecutor {
 public:
  LoopExecutor();

  // From any thread.
  void post(std::function<void()> work);

  // Readable while work waits.
  [[nodiscard]] int descriptor() const { return event_.get(); }

  // Runs what waits, on the calling thread.
  void runAll();

 private:
  base::Descriptor event_;
  std::mutex mutex_;
  std::vector<std::function<void()>> waiting_;
};

}  // namespace remote
