#pragma once

#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <deque>
#include <memory>

#include "linux/network/AsioMainQueue.hpp"

namespace platform_linux {

class TlsLink;

// Lets public connections that have not authenticated be read, one at a time and in the order in
// which they ask. After an event of theirs that took some time none of them is read for as long
// again, so that together they get at most half of the loop's time: one message may cost the daemon
// a thousand times what it costs its sender.
class UnauthenticatedTurns : public std::enable_shared_from_this<UnauthenticatedTurns> {
 public:
  explicit UnauthenticatedTurns(AsioMainQueue &queue) : queue_(queue), timer_(queue.context()) {}

  // The link is read on a later event.
  void add(std::weak_ptr<TlsLink> link);

  // One of them has taken so much of the loop's time until now.
  void charge(std::chrono::steady_clock::duration time);

 private:
  void schedule();
  void turn();

  AsioMainQueue &queue_;
  boost::asio::steady_timer timer_;
  std::deque<std::weak_ptr<TlsLink>> waiting_;
  std::chrono::steady_clock::time_point restsUntil_;
  bool isScheduled_ = false;
};

}  // namespace platform_linux
