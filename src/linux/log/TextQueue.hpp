#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

#include "linux/log/RetryTimer.hpp"

namespace platform_linux {

// Text on its way to a descriptor that other processes may share, so that its flags are not ours to
// change. It is written together, 10 ms after the first of it. While the reader stands still 1 MiB
// waits; what comes after that is dropped, and a line in its place says how much. A write on a pipe
// without a reader raises SIGPIPE, which the process has to ignore.
//
// Used with the mutex held, which its timer takes by itself.
class TextQueue {
 public:
  // `processName` stands before the count of what was dropped. The descriptor is borrowed.
  TextQueue(platform::MainQueue &queue, std::mutex &mutex, const std::string &processName,
            int descriptor);

  void add(std::string_view text);

  // Writes what can be written without blocking.
  Passage send();

  // Goes on writing until nothing waits, writing fails or the deadline has passed.
  void sendUntil(std::chrono::steady_clock::time_point deadline);

 private:
  [[nodiscard]] std::size_t waitingBytes() const { return waiting_.size() - written_; }
  [[nodiscard]] bool writePiece();
  void sayWhatWasDropped();

  std::string processName_;
  int descriptor_;
  std::string waiting_;
  std::size_t written_ = 0;    // so much at the start of `waiting_` is gone
  bool isStuck_ = false;       // the last try left text behind
  std::uint64_t dropped_ = 0;  // bytes since the last of those that wait
  RetryTimer timer_;
};

}  // namespace platform_linux
