#include "linux/network/AsioMainQueue.hpp"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <memory>
#include <new>
#include <utility>

namespace platform_linux {

void AsioMainQueue::run() {
  const auto staysOpen = boost::asio::make_work_guard(context_);
  context_.restart();
  while (!context_.stopped()) {
    endEvent();
    serve([this] { context_.run_one(); });
  }
}

void AsioMainQueue::endEvent() {
  while (!atEnd_.empty()) {
    serve([this] {
      const auto work = std::move(atEnd_.front());
      atEnd_.pop_front();
      work();
    });
  }
}

// If there is no memory, only this event is lost: code that must not be interrupted catches the
// exception itself.
template <typename Event>
void AsioMainQueue::serve(Event event) {
  try {
    beforeEvent_();
    event();
  } catch (const std::bad_alloc &) {
    reportLostEvent();
  }
}

void AsioMainQueue::reportLostEvent() {
  try {
    reporter_("out of memory: an event is lost");
  } catch (const std::bad_alloc &) {
    return;  // there is no memory for the report either
  }
}

void AsioMainQueue::stop() {
  context_.stop();
}

void AsioMainQueue::post(std::function<void()> work) {
  boost::asio::post(context_, std::move(work));
}

void AsioMainQueue::postAfter(std::chrono::milliseconds delay, std::function<void()> work) {
  const auto timer = std::make_shared<boost::asio::steady_timer>(context_, delay);
  timer->async_wait([timer, work = std::move(work)](
                        const boost::system::error_code & /*never cancelled*/) { work(); });
}

void AsioMainQueue::setBeforeEvent(std::function<void()> beforeEvent) {
  beforeEvent_ = std::move(beforeEvent);
}

}  // namespace platform_linux
