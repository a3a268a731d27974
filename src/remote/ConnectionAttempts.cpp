#include "remote/ConnectionAttempts.hpp"

#include <sys/eventfd.h>

#include <thread>
#include <utility>

namespace remote {
namespace {

AttemptOutcome open(const Address &address, const std::optional<Fingerprint> &pinned,
                    int stopDescriptor) {
  AttemptOutcome opened;
  const auto verifier = [&](const crypto::Certificate &certificate) {
    opened.shown = certificate.sha256();
    return !pinned || base::equal(*pinned, *opened.shown);
  };
  client::WaitLimits limits;
  limits.stopDescriptor = stopDescriptor;
  opened.connection = client::Connection::open(address.host, address.port, verifier, limits,
                                               &opened.error, client::kNetworkTimeouts);
  return opened;
}

}  // namespace

ConnectionAttempts::ConnectionAttempts(std::shared_ptr<LoopExecutor> executor)
    : executor_(std::move(executor)), stopEvent_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

void ConnectionAttempts::begin(const Address &address, const std::optional<Fingerprint> &pinned,
                               Completion completion) {
  joinDone();
  threads_.emplace_back([address, pinned, completion = std::move(completion), executor = executor_,
                         shared = shared_, stopDescriptor = stopEvent_.get()] {
    executor->post(
        [completion, opened = open(address, pinned, stopDescriptor)] { completion(opened); });
    const std::scoped_lock lock(shared->mutex);
    shared->done.insert(std::this_thread::get_id());
    shared->changed.notify_all();
  });
}

void ConnectionAttempts::joinDone() {
  const std::scoped_lock lock(shared_->mutex);
  std::erase_if(threads_, [this](std::thread &thread) {
    const bool isDone = shared_->done.erase(thread.get_id()) != 0;
    if (isDone) {
      thread.join();
    }
    return isDone;
  });
}

bool ConnectionAttempts::finish(client::Deadline deadline) {
  (void)::eventfd_write(stopEvent_.get(), 1);
  {
    std::unique_lock lock(shared_->mutex);
    shared_->changed.wait_until(lock, deadline,
                                [this] { return shared_->done.size() == threads_.size(); });
  }
  joinDone();
  for (std::thread &thread : threads_) {
    thread.detach();
  }
  return std::exchange(threads_, {}).empty();
}

}  // namespace remote
