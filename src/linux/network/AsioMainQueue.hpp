#pragma once

#include <boost/asio/io_context.hpp>
#include <chrono>
#include <deque>
#include <functional>
#include <string>
#include <utility>

#include "platform/MainQueue.hpp"

namespace platform_linux {

// The main queue on Boost.Asio's io_context.
class AsioMainQueue final : public platform::MainQueue {
 public:
  // Gets a line about each fault of the queue itself.
  using Reporter = std::function<void(const std::string &line)>;

  explicit AsioMainQueue(Reporter reporter = [](const std::string &) {})
      : reporter_(std::move(reporter)) {}

  void run() override;
  void stop() override;
  void post(std::function<void()> work) override;
  void postAfter(std::chrono::milliseconds delay, std::function<void()> work) override;
  void setBeforeEvent(std::function<void()> beforeEvent) override;

  // Runs `work` at the end of the present event, in an event of its own. Nothing that has come in
  // is looked at before, so this is for little that was begun in the event.
  void postAtEnd(std::function<void()> work) { atEnd_.push_back(std::move(work)); }

  // Runs what was posted to the end of the present event. Called by run(), and by whoever runs the
  // context instead.
  void endEvent();

  // For the sockets of this folder.
  [[nodiscard]] boost::asio::io_context &context() { return context_; }

 private:
  template <typename Event>
  void serve(Event event);
  void reportLostEvent();

  Reporter reporter_;
  boost::asio::io_context context_{1};  // one thread runs it
  std::deque<std::function<void()>> atEnd_;
  std::function<void()> beforeEvent_ = [] {};
};

}  // namespace platform_linux
