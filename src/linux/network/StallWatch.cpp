#include "linux/network/StallWatch.hpp"

#include <cerrno>
#include <chrono>
#include <utility>

#include "linux/network/TlsLink.hpp"

namespace platform_linux {
namespace {

constexpr std::chrono::seconds kBetweenLooks{1};

}  // namespace

StallWatch::StallWatch(AsioMainQueue &queue, std::function<platform::ConnectionLimits()> limits,
                       platform::LimitReporter reporter)
    : limits_(std::move(limits)), reporter_(std::move(reporter)), timer_(queue.context()) {}

void StallWatch::watch(std::weak_ptr<TlsLink> link) {
  watched_.push_back(std::move(link));
  arm();
}

void StallWatch::arm() {
  if (isArmed_ || watched_.empty()) {
    return;
  }
  timer_.expires_after(kBetweenLooks);
  timer_.async_wait(
      [self = shared_from_this()](const boost::system::error_code & /*never cancelled*/) {
        self->isArmed_ = false;
        self->sweep();
      });
  isArmed_ = true;
}

void StallWatch::sweep() {
  arm();  // first: the next look comes even if this one runs out of memory
  std::erase_if(watched_, [this](const std::weak_ptr<TlsLink> &each) {
    const auto link = each.lock();
    return !link || dropIfStalled(*link);
  });
}

// True if the watch of this link is over: it was dropped, or no output waits any more.
bool StallWatch::dropIfStalled(TlsLink &link) {
  const auto missing = link.checkAcknowledgements();
  if (!missing) {
    return true;
  }
  if (*missing < kBetweenLooks) {  // no limit is shorter
    return false;
  }
  const platform::Limit longest = limits_().stalledOutput;
  if (*missing < std::chrono::seconds(longest.most)) {
    return false;
  }
  reporter_({longest, "connection from " + link.peer().host + " dropped"});
  link.lose(ETIMEDOUT);
  return true;
}

}  // namespace platform_linux
