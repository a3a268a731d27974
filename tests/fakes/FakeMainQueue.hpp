#pragma once

#include <map>

#include "platform/MainQueue.hpp"

namespace fakes {

// A queue whose events and whose time move only when the test moves them. Events that are due at
// the same time run in the order in which they were given.
class FakeMainQueue : public platform::MainQueue {
 public:
  using Duration = std::chrono::milliseconds;

  // Runs what is due within `duration` from now, and what that brings within it; time then stands
  // there.
  void advance(Duration duration) {
    const Duration end = now_ + duration;
    while (!waiting_.empty() && waiting_.begin()->first <= end) {
      auto first = waiting_.extract(waiting_.begin());
      now_ = std::max(now_, first.key());
      if (beforeEvent_) {
        beforeEvent_();
      }
      first.mapped()();
    }
    now_ = end;
  }

  void run() override { advance(std::chrono::hours(1)); }
  void stop() override {}
  void post(std::function<void()> work) override { postAfter(Duration{0}, std::move(work)); }
  void postAfter(Duration delay, std::function<void()> work) override {
    waiting_.emplace(now_ + delay, std::move(work));  // goes behind those of the same time
  }
  void setBeforeEvent(std::function<void()> beforeEvent) override {
    beforeEvent_ = std::move(beforeEvent);
  }

  // How many events, posted ones and timers, have not run yet.
  [[nodiscard]] std::size_t waitingEvents() const { return waiting_.size(); }

 private:
  Duration now_{0};
  std::multimap<Duration, std::function<void()>> waiting_;
  std::function<void()> beforeEvent_;
};

}  // namespace fakes
