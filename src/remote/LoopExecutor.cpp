#include "remote/LoopExecutor.hpp"

#include <sys/eventfd.h>

#include <utility>

namespace remote {

LoopExecutor::LoopExecutor() : event_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

void LoopExecutor::post(std::function<void()> work) {
  const std::scoped_lock lock(mutex_);
  waiting_.push_back(std::move(work));
  (void)::eventfd_write(event_.get(), 1);
}

void LoopExecutor::runAll() {
  std::vector<std::function<void()>> work;
  {
    const std::scoped_lock lock(mutex_);
    eventfd_t count = 0;
    (void)::eventfd_read(event_.get(), &count);
    work.swap(waiting_);
  }
  for (const auto &item : work) {
    item();
  }
}

}  // namespace remote
