#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace remote {

// A few threads for key operations, so that a slow key blocks no connection.
class WorkPool {
 public:
  explicit WorkPool(std::size_t threads);

  // Waits for running work and drops the waiting work.
  ~WorkPool();
  WorkPool(const WorkPool &) = delete;
  WorkPool &operator=(const WorkPool &) = delete;

  // Runs `work` on one of the threads, in the order of the calls.
  void run(std::function<void()> work);

  // True if no work waits or runs.
  [[nodiscard]] bool isIdle();

 private:
  void serve();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::function<void()>> waiting_;
  std::size_t running_ = 0;
  bool isEnding_ = false;
  std::vector<std::thread> threads_;
};

}  // namespace remote
