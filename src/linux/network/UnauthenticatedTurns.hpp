#pragma once

#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <deque>
#include <memory>

#include "linux/network/AsioMainQueue.hpp"

namespace platform_linux {

class TlsLink;

// Limits the loop's time for public connections that have not authenticated. One message may cost
// the daemon a thousand times what it costs the sender. These connections are read one at a time,
// in the order in which they ask. After an event of theirs that took a time t, none of them is read
// for t. So together they get at most half of the loop's time.
class UnauthenticatedTurns : public std::enable_shared_from_this<UnauthenticatedTurns> {
 public:
  explicit UnauthenticatedTurns(AsioMainQueue &queue) : queue_(queue), timer_(queue.context()) {}

  // Queues the link; it is read on a later event.
  void add(std::weak_ptr<TlsLink> link);

  // An event of one of them took this time and ends now.
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
