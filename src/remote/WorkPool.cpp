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

bool WorkPool::isIdle() {
  const std::scoped_lock lock(mutex_);
  return waiting_.empty() && running_ == 0;
}

void WorkPool::serve() {
  std::unique_lock lock(mutex_);
  while (true) {
    changed_.wait(lock, [this] { return isEnding_ || !waiting_.empty(); });
    if (isEnding_) {
      return;
    }
    auto work = std::move(waiting_.front());
    waiting_.pop_front();
    ++running_;
    lock.unlock();
    work();
    work = nullptr;  // what it holds is not freed under the mutex
    lock.lock();
    --running_;
  }
}

}  // namespace remote
