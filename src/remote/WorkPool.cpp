#include "remote/WorkPool.hpp"

#include <utility>

namespace remote {

WorkPool::WorkPool(std::size_t threads) {
  for (std::size_t count = 0; count < threads; ++count) {
    threads_.emplace_back([this] { serve(); });
  }
}

WorkPool::~WorkPool() {
  {
    const std::scoped_lock lock(mutex_);
    isEnding_ = true;
  }
  changed_.notify_all();
  for (std::thread &thread : threads_) {
    thread.join();
  }
}

void WorkPool::run(std::function<void()> work) {
  {
    const std::scoped_lock lock(mutex_);
    waiting_.push_back(std::move(work));
  }
  changed_.notify_one();
}

void WorkPool::serve() {
  while (true) {
    std::function<void()> work;
    {
      std::unique_lock lock(mutex_);
      changed_.wait(lock, [this] { return isEnding_ || !waiting_.empty(); });
      if (isEnding_) {
        return;
      }
      work = std::move(waiting_.front());
      waiting_.pop_front();
    }
    work();
  }
}

}  // namespace remote
