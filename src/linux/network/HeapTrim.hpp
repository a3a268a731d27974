#pragma once

#include <boost/asio/steady_timer.hpp>
#include <cstddef>
#include <memory>

#include "linux/network/AsioMainQueue.hpp"

namespace platform_linux {

// Gives memory back to the system after many connections have gone. The allocator keeps what was
// freed between two pieces that live on: after a flood of 1,000 connections 20 MiB stayed resident.
class HeapTrim : public std::enable_shared_from_this<HeapTrim> {
 public:
  explicit HeapTrim(AsioMainQueue &queue) : timer_(queue.context()) {}

  // A connection or an unfinished handshake has gone.
  void connectionGone();

 private:
  boost::asio::steady_timer timer_;
  std::size_t gone_ = 0;  // since the last time
};

}  // namespace platform_linux
