#pragma once

#include <chrono>
#include <functional>

namespace platform {

// The daemon's main queue: listeners, connections, completions and timers run on it. All members
// are called on the thread that runs it.
class MainQueue {
 public:
  virtual ~MainQueue() = default;

  // Serves events until the process ends; returns only after stop(). Before each event
  // `beforeEvent` of setBeforeEvent is called.
  virtual void run() = 0;

  // Makes run() return after the current event.
  virtual void stop() = 0;

  // Runs `work` in an event of its own, after those that are already waiting.
  virtual void post(std::function<void()> work) = 0;

  // Runs `work` once, in an event of its own, when `delay` has passed.
  virtual void postAfter(std::chrono::milliseconds delay, std::function<void()> work) = 0;

  // Sets the function to call before each event; it replaces the earlier one.
  virtual void setBeforeEvent(std::function<void()> beforeEvent) = 0;
};

}  // namespace platform
