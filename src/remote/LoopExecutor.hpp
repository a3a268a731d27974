#pragma once

#include <functional>
#include <mutex>
#include <vector>

#include "base/Descriptor.hpp"

namespace remote {

// Runs work that other threads post on the loop's thread.
class LoopExecutor {
 public:
  LoopExecutor();

  // From any thread.
  void post(std::function<void()> work);

  // Readable while work waits.
  [[nodiscard]] int descriptor() const { return event_.get(); }

  // Runs the waiting work on the calling thread.
  void runAll();

 private:
  base::Descriptor event_;
  std::mutex mutex_;
  std::vector<std::function<void()>> waiting_;
};

}  // namespace remote
